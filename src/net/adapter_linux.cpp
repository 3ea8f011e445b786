// Linux: the kernel's lists of links and of addresses, each asked for over a netlink socket.
//
// A list comes as several datagrams, ended by a message that says so. They are collected first and read
// afterwards, because a list that changed while it was sent is asked for again.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <vector>

#include "base/descriptor.h"
#include "base/platform.h"
#include "net/adapter_inter.h"

namespace {

using vyx_inter::AdapterList;
using vyx_inter::AddressFact;
using vyx_inter::Descriptor;
using vyx_inter::InterfaceFact;

constexpr int kAttempts = 5; // at a list that does not change meanwhile

// A piece of a message.
struct Span {
    const uint8_t *p = nullptr;
    size_t nSize = 0;
};

// Copies a record from the start of a piece; false if it is too short.
template <class Record>
bool ReadRecord_Local(const Span &from, Record *pRecord) {
    if (from.nSize < sizeof *pRecord)
        return false;
    std::memcpy(pRecord, from.p, sizeof *pRecord);
    return true;
}

// Takes a piece off the front, with the padding to 4 bytes that records have between them.
void Skip_Local(Span *pRest, size_t nCount) {
    const size_t nPadded = std::min(pRest->nSize, (nCount + 3) & ~size_t{3});
    pRest->p += nPadded;
    pRest->nSize -= nPadded;
}

// Takes the next message off the front; false at the end.
bool NextMessage_Local(Span *pRest, nlmsghdr *pHeader, Span *pBody) {
    if (!ReadRecord_Local(*pRest, pHeader) || pHeader->nlmsg_len < sizeof *pHeader ||
        pHeader->nlmsg_len > pRest->nSize)
        return false;
    *pBody = {pRest->p + sizeof *pHeader, pHeader->nlmsg_len - sizeof *pHeader};
    Skip_Local(pRest, pHeader->nlmsg_len);
    return true;
}

// The value of an attribute behind a message's own record; empty if it is not there.
Span Attribute_Local(Span body, size_t nRecord, unsigned short nType) {
    rtattr attribute = {};
    Skip_Local(&body, nRecord);
    while (ReadRecord_Local(body, &attribute) && attribute.rta_len >= sizeof attribute &&
           attribute.rta_len <= body.nSize) {
        if (attribute.rta_type == nType)
            return {body.p + sizeof attribute, attribute.rta_len - sizeof attribute};
        Skip_Local(&body, attribute.rta_len);
    }
    return {};
}

bool Ask_Local(int iFd, uint16_t nType, uint32_t nSequence) {
    struct {
        nlmsghdr header;
        rtgenmsg body;
    } request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = nType;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = nSequence;
    request.body.rtgen_family = AF_UNSPEC;
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    return sendto(iFd, &request, sizeof request, 0, reinterpret_cast<const sockaddr *>(&kernel),
                  sizeof kernel) == static_cast<ssize_t>(sizeof request);
}

// Receives one datagram, repeated when a signal handler interrupts it.
ssize_t ReceiveOnce_Local(int iFd, void *pBuf, size_t nSize, int iFlags, sockaddr_nl *pFrom) {
    for (;;) {
        socklen_t nFromSize = sizeof *pFrom;
        const ssize_t iCount =
            recvfrom(iFd, pBuf, nSize, iFlags, reinterpret_cast<sockaddr *>(pFrom), &nFromSize);
        if (iCount >= 0 || errno != EINTR)
            return iCount;
    }
}

// Appends the kernel's next datagram, whatever its size; others' are dropped. Throws if memory is short.
bool Receive_Local(int iFd, std::vector<uint8_t> *pBuffer) {
    for (;;) {
        sockaddr_nl from = {};
        const ssize_t iSize = ReceiveOnce_Local(iFd, nullptr, 0, MSG_PEEK | MSG_TRUNC, &from);
        if (iSize < 0)
            return false;
        const size_t nOld = pBuffer->size();
        pBuffer->resize(nOld + static_cast<size_t>(iSize));
        if (ReceiveOnce_Local(iFd, pBuffer->data() + nOld, static_cast<size_t>(iSize), 0, &from) != iSize)
            return false;
        if (from.nl_pid == 0)
            return true;
        pBuffer->resize(nOld);
    }
}

// How far the answer to a request has come.
struct Progress {
    bool bDone = false;
    bool bFailed = false;  // errno is set
    bool bChanged = false; // the list changed meanwhile
};

// Reports an error number that the kernel sent negated; 0 is none.
void NoteError_Local(const Span &body, Progress *pProgress) {
    int iError = 0;
    if (!ReadRecord_Local(body, &iError) || iError >= 0)
        return;
    errno = -iError;
    pProgress->bFailed = true;
}

void Follow_Local(Span rest, uint32_t nSequence, Progress *pProgress) {
    nlmsghdr header = {};
    Span body;
    while (NextMessage_Local(&rest, &header, &body)) {
        if (header.nlmsg_seq != nSequence)
            continue;
        pProgress->bChanged |= (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
        if (header.nlmsg_type != NLMSG_ERROR && header.nlmsg_type != NLMSG_DONE)
            continue;
        pProgress->bDone = true;
        NoteError_Local(body, pProgress); // both begin with the number
    }
}

// Reads a list as a whole. Throws if memory is short.
bool ReadList_Local(int iFd, uint16_t nType, std::vector<uint8_t> *pBuffer) {
    for (uint32_t nAttempt = 1;; ++nAttempt) {
        const uint32_t nSequence = nAttempt << 16 | nType;
        Progress progress;
        pBuffer->clear();
        if (!Ask_Local(iFd, nType, nSequence))
            return false;
        while (!progress.bDone) {
            const size_t nOld = pBuffer->size();
            if (!Receive_Local(iFd, pBuffer))
                return false;
            Follow_Local({pBuffer->data() + nOld, pBuffer->size() - nOld}, nSequence, &progress);
        }
        if (progress.bFailed)
            return false;
        if (!progress.bChanged || nAttempt == kAttempts)
            return true;
    }
}

void TakeLink_Local(const Span &body, AdapterList *pList) {
    constexpr unsigned kWanted = IFF_UP | IFF_RUNNING;
    ifinfomsg link = {};
    if (!ReadRecord_Local(body, &link))
        return;
    const Span name = Attribute_Local(body, sizeof link, IFLA_IFNAME);
    const Span addr = Attribute_Local(body, sizeof link, IFLA_ADDRESS);
    InterfaceFact fact = {};
    fact.nIndex = static_cast<uint32_t>(link.ifi_index);
    fact.bUpAndRunning = (link.ifi_flags & kWanted) == kWanted;
    fact.pName = name.p;
    fact.nNameLen = name.nSize; // its zero counts, and is copied with it
    fact.pAddr = addr.p;
    fact.nAddrLen = addr.nSize;
    fact.nType = link.ifi_type;
    pList->AddInterface(fact);
}

void FillMask_Local(unsigned nBits, uint8_t *pMask, size_t nSize) {
    for (size_t i = 0; i < nSize; ++i) {
        const unsigned nHere = std::min(nBits, 8U);
        pMask[i] = static_cast<uint8_t>(0xFF00U >> nHere);
        nBits -= nHere;
    }
}

void TakeAddress_Local(const Span &body, AdapterList *pList) {
    ifaddrmsg record = {};
    if (!ReadRecord_Local(body, &record) || (record.ifa_family != AF_INET && record.ifa_family != AF_INET6))
        return;
    // Of a point-to-point link the other attribute is the peer's address.
    Span addr = Attribute_Local(body, sizeof record, IFA_LOCAL);
    if (addr.p == nullptr)
        addr = Attribute_Local(body, sizeof record, IFA_ADDRESS);
    AddressFact fact = {};
    fact.nIndex = record.ifa_index;
    fact.bIp6 = record.ifa_family == AF_INET6;
    const size_t nSize = fact.bIp6 ? sizeof(in6_addr) : sizeof(in_addr);
    if (addr.nSize < nSize)
        return;
    std::memcpy(fact.byAddr, addr.p, nSize);
    FillMask_Local(record.ifa_prefixlen, fact.byMask, nSize);
    pList->AddAddress(fact);
}

// Hands the bodies of all messages of one type to a function.
template <class Take>
void ForEach_Local(const std::vector<uint8_t> &buffer, uint16_t nType, Take take) {
    Span rest = {buffer.data(), buffer.size()};
    nlmsghdr header = {};
    Span body;
    while (NextMessage_Local(&rest, &header, &body)) {
        if (header.nlmsg_type == nType)
            take(body);
    }
}

bool ReadAll_Local(AdapterList *pList) {
    const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (socket.Get() < 0)
        return false;
    std::vector<uint8_t> buffer;
    if (!ReadList_Local(socket.Get(), RTM_GETLINK, &buffer))
        return false;
    ForEach_Local(buffer, RTM_NEWLINK, [pList](const Span &body) { TakeLink_Local(body, pList); });
    if (!ReadList_Local(socket.Get(), RTM_GETADDR, &buffer))
        return false;
    ForEach_Local(buffer, RTM_NEWADDR, [pList](const Span &body) { TakeAddress_Local(body, pList); });
    return true;
}

} // namespace

int32_t VYX_ReadInterfaces_Inter(vyx_inter::AdapterList *pList) {
    try {
        return ReadAll_Local(pList) ? VYX_OK : VYX_ERROR;
    } catch (const std::exception &) { // memory is short; the end of a cancelled thread passes on
        errno = ENOMEM;
        return VYX_ERROR;
    }
}
