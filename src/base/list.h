// A list of records through links in the records themselves.
#ifndef VYX_BASE_LIST_H
#define VYX_BASE_LIST_H

namespace vyx_inter {

template <class T>
struct Links {
    T *pPrev;
    T *pNext;
};

// In the order in which they came. Needs no memory, no construction and no destruction: what is registered may be so
// before main, and may lie on a stack.
template <class T, Links<T> T::*kLinks>
struct List {
    T *pFirst = nullptr;
    T *pLast = nullptr;

    void Append(T *pRecord) {
        (pRecord->*kLinks) = {pLast, nullptr};
        (pLast == nullptr ? pFirst : (pLast->*kLinks).pNext) = pRecord;
        pLast = pRecord;
    }
    void Remove(T *pRecord) {
        const Links<T> links = pRecord->*kLinks;
        (links.pPrev == nullptr ? pFirst : (links.pPrev->*kLinks).pNext) = links.pNext;
        (links.pNext == nullptr ? pLast : (links.pNext->*kLinks).pPrev) = links.pPrev;
    }
    static T *Next(const T *pRecord) { return (pRecord->*kLinks).pNext; }
};

} // namespace vyx_inter

#endif
