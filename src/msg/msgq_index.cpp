// A B+ tree whose keys are the priorities in use. Rows of keys lie next to each other, so that finding one
// among ten thousand costs three short scans rather than a dozen cache misses.
//
// Only the highest priority ever goes away, so nodes shrink on the right edge alone, and a node that is not on
// that edge is the half of a full one, or fuller. That bounds the memory without rebalancing: 25 bytes for each
// priority, and one path of nodes.
#include "msg/msgq_index.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>

namespace vyx_inter {

namespace {

constexpr uint32_t kFanOut = 32;
constexpr uint32_t kMaxLevels = 12; // 2^32 priorities in nodes at least half full need 8

} // namespace

struct MsgIndexNode {
    uint32_t nCount = 0;
    uint32_t nLevel = 0; // 0 = leaf
    // Ascending. In a leaf the priorities; above, for each child a bound: it holds the keys from there up to the
    // next child's bound.
    std::array<int32_t, kFanOut> iKeys = {};
    union Item {
        VYX_MQ_MSG_S *pLast; // in a leaf: the ring's last message
        MsgIndexNode *pChild;
    };
    std::array<Item, kFanOut> items = {};
};

namespace {

using Node = MsgIndexNode;

// The way from a node down to a leaf, by level.
struct Path {
    std::array<Node *, kMaxLevels> pNodes;
    std::array<uint32_t, kMaxLevels> nItems; // which child was taken; for the leaf, where the key belongs
};

// Keys not above iKey. Runs over the whole row, so that the compiler can compare several keys at a time.
uint32_t CountNotAbove_Local(const Node &node, int32_t iKey) {
    uint32_t nCount = 0;
    for (uint32_t i = 0; i < kFanOut; ++i)
        nCount += static_cast<uint32_t>(i < node.nCount) & static_cast<uint32_t>(node.iKeys[i] <= iKey);
    return nCount;
}

void Descend_Local(Node *pNode, int32_t iKey, Path &path) {
    for (; pNode->nLevel != 0; pNode = path.pNodes[pNode->nLevel]->items[path.nItems[pNode->nLevel]].pChild) {
        path.pNodes[pNode->nLevel] = pNode;
        path.nItems[pNode->nLevel] = std::max(CountNotAbove_Local(*pNode, iKey), 1U) - 1;
    }
    path.pNodes[0] = pNode;
    path.nItems[0] = CountNotAbove_Local(*pNode, iKey);
}

void InsertAt_Local(Node &node, uint32_t nAt, int32_t iKey, Node::Item item) {
    std::copy_backward(node.iKeys.begin() + nAt, node.iKeys.begin() + node.nCount,
                       node.iKeys.begin() + node.nCount + 1);
    std::copy_backward(node.items.begin() + nAt, node.items.begin() + node.nCount,
                       node.items.begin() + node.nCount + 1);
    node.iKeys[nAt] = iKey;
    node.items[nAt] = item;
    ++node.nCount;
}

// Nodes made before a change begins, so that it cannot fail half-way. Frees those that were not used.
class SpareNodes {
  public:
    SpareNodes() = default;
    ~SpareNodes() {
        while (m_nCount != 0)
            delete Take();
    }
    SpareNodes(const SpareNodes &) = delete;
    SpareNodes &operator=(const SpareNodes &) = delete;

    bool Make(uint32_t nCount) {
        while (m_nCount < nCount) {
            m_pNodes[m_nCount] = new (std::nothrow) Node();
            if (m_pNodes[m_nCount] == nullptr)
                return false;
            ++m_nCount;
        }
        return true;
    }
    Node *Take() { return m_pNodes[--m_nCount]; }

  private:
    std::array<Node *, kMaxLevels + 1> m_pNodes = {};
    uint32_t m_nCount = 0;
};

// How many nodes an insertion at the end of the path will need.
uint32_t NodesNeeded_Local(const Path &path, uint32_t nTopLevel) {
    uint32_t nNeeded = 0;
    for (uint32_t nLevel = 0; nLevel <= nTopLevel; ++nLevel) {
        if (path.pNodes[nLevel]->nCount < kFanOut)
            return nNeeded;
        ++nNeeded;
    }
    return nNeeded + 1; // a new root
}

// Moves the upper half of a full node to the empty one.
void Split_Local(Node &node, Node &right) {
    constexpr uint32_t kHalf = kFanOut / 2;
    right.nLevel = node.nLevel;
    std::copy(node.iKeys.begin() + kHalf, node.iKeys.end(), right.iKeys.begin());
    std::copy(node.items.begin() + kHalf, node.items.end(), right.items.begin());
    node.nCount = kHalf;
    right.nCount = kFanOut - kHalf;
}

Node *NewRoot_Local(Node *pRoot, Node *pLeft, Node *pRight) {
    pRoot->nLevel = pLeft->nLevel + 1;
    Node::Item item;
    item.pChild = pLeft;
    // Everything below the right node's lowest key belongs to the left node, whatever comes later.
    InsertAt_Local(*pRoot, 0, INT32_MIN, item);
    item.pChild = pRight;
    InsertAt_Local(*pRoot, 1, pRight->iKeys[0], item);
    return pRoot;
}

// Puts a priority that is not there yet where the path ends. Result: the root, which may be a new one.
Node *Insert_Local(Node *pRoot, const Path &path, SpareNodes &spares, int32_t iKey, Node::Item item) {
    uint32_t nAt = path.nItems[0];
    for (uint32_t nLevel = 0;; ++nLevel) {
        Node &node = *path.pNodes[nLevel];
        if (node.nCount < kFanOut) {
            InsertAt_Local(node, nAt, iKey, item);
            return pRoot;
        }
        Node *pRight = spares.Take();
        Split_Local(node, *pRight);
        if (nAt <= node.nCount)
            InsertAt_Local(node, nAt, iKey, item);
        else
            InsertAt_Local(*pRight, nAt - node.nCount, iKey, item);
        if (&node == pRoot)
            return NewRoot_Local(spares.Take(), pRoot, pRight);
        iKey = pRight->iKeys[0];
        item.pChild = pRight;
        nAt = path.nItems[nLevel + 1] + 1;
    }
}

Node *RightChild_Local(const Node &node) {
    return node.items[node.nCount - 1].pChild;
}

// Takes the highest priority out. Result: the root, lower by the levels that have become needless.
Node *RemoveHighest_Local(Node *pRoot) {
    Path path;
    Node *pNode = pRoot;
    for (; pNode->nLevel != 0; pNode = RightChild_Local(*pNode))
        path.pNodes[pNode->nLevel] = pNode;
    --pNode->nCount;
    while (pNode->nCount == 0 && pNode != pRoot) {
        Node *pParent = path.pNodes[pNode->nLevel + 1];
        delete pNode;
        --pParent->nCount;
        pNode = pParent;
    }
    while (pRoot->nLevel != 0 && pRoot->nCount == 1) {
        Node *pChild = pRoot->items[0].pChild;
        delete pRoot;
        pRoot = pChild;
    }
    return pRoot;
}

} // namespace

bool MsgIndex::AppendToTree(VYX_MQ_MSG_S *pFirst, VYX_MQ_MSG_S *pLast) {
    if (m_pRoot == nullptr)
        m_pRoot = new (std::nothrow) Node();
    if (m_pRoot == nullptr)
        return false;
    Path path;
    Descend_Local(m_pRoot, pFirst->struMsg.iPriority, path);
    Node &leaf = *path.pNodes[0];
    const uint32_t nAt = path.nItems[0];
    if (nAt != 0 && leaf.iKeys[nAt - 1] == pFirst->struMsg.iPriority) {
        VYX_MQ_MSG_S *&pOldLast = leaf.items[nAt - 1].pLast;
        pLast->pNext = pOldLast->pNext;
        pOldLast->pNext = pFirst;
        pOldLast = pLast;
        return true;
    }
    SpareNodes spares;
    if (!spares.Make(NodesNeeded_Local(path, m_pRoot->nLevel)))
        return false;
    pLast->pNext = pFirst;
    Node::Item item;
    item.pLast = pLast;
    m_pRoot = Insert_Local(m_pRoot, path, spares, pFirst->struMsg.iPriority, item);
    return true;
}

// The leaf with the highest priority; null if the tree has no message.
const MsgIndexNode *MsgIndex::FirstLeaf() const {
    if (m_pRoot == nullptr || m_pRoot->nCount == 0)
        return nullptr;
    const Node *pNode = m_pRoot;
    while (pNode->nLevel != 0)
        pNode = RightChild_Local(*pNode);
    return pNode;
}

void MsgIndex::Append(VYX_MQ_MSG_S *pFirst, VYX_MQ_MSG_S *pLast) {
    if (m_pLate == nullptr && AppendToTree(pFirst, pLast))
        return;
    VYX_MQ_MSG_S **ppNext = &m_pLate;
    while (*ppNext != nullptr && (*ppNext)->struMsg.iPriority >= pFirst->struMsg.iPriority)
        ppNext = &(*ppNext)->pNext;
    pLast->pNext = *ppNext;
    *ppNext = pFirst;
}

VYX_MQ_MSG_S *MsgIndex::First() const {
    const Node *pLeaf = FirstLeaf();
    // Of equal priorities, those in the tree are older.
    if (m_pLate != nullptr &&
        (pLeaf == nullptr || m_pLate->struMsg.iPriority > pLeaf->iKeys[pLeaf->nCount - 1]))
        return m_pLate;
    return pLeaf == nullptr ? nullptr : pLeaf->items[pLeaf->nCount - 1].pLast->pNext;
}

VYX_MQ_MSG_S *MsgIndex::RemoveFirst() {
    VYX_MQ_MSG_S *pFirst = First();
    if (pFirst == nullptr)
        return nullptr;
    if (pFirst == m_pLate) {
        m_pLate = pFirst->pNext;
        return pFirst;
    }
    const Node *pLeaf = FirstLeaf();
    VYX_MQ_MSG_S *pLast = pLeaf->items[pLeaf->nCount - 1].pLast;
    if (pFirst == pLast)
        m_pRoot = RemoveHighest_Local(m_pRoot);
    else
        pLast->pNext = pFirst->pNext;
    return pFirst;
}

bool MsgIndex::Empty() const {
    return m_pLate == nullptr && FirstLeaf() == nullptr;
}

void MsgIndex::Release() {
    delete m_pRoot;
    m_pRoot = nullptr;
}

} // namespace vyx_inter
