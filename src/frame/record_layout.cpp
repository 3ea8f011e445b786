// Where the fields of public records are, on processors with 32 and with 64 bits: programs in other languages, and
// those built with another release, rely on it. What is not fixed here follows the platform (mutexes, sockets).
#include <vyx/vyx.h>

namespace {

constexpr size_t kPointer = sizeof(void *);

constexpr size_t Aligned(size_t nOffset, size_t nAlignment) {
    return (nOffset + nAlignment - 1) / nAlignment * nAlignment;
}

constexpr size_t kAdapterLists = Aligned(kPointer + 412, kPointer);
constexpr size_t kInformationName = Aligned(44, kPointer);

static_assert(sizeof(void *) == 4 || sizeof(void *) == 8);
static_assert(sizeof(VYX_TIME_T) == 8 && sizeof(VYX_SOCK_T) == 4 && sizeof(VYX_FILE_T) == 4);
static_assert(sizeof(VYX_SEM_T) == kPointer && sizeof(VYX_EVENT) == kPointer &&
              sizeof(VYX_DIR_T) == kPointer);

static_assert(offsetof(VYX_MSG_BLOCK_T, iMsgType) == 0 && offsetof(VYX_MSG_BLOCK_T, iPriority) == 4 &&
              offsetof(VYX_MSG_BLOCK_T, iDataLen) == 8 && offsetof(VYX_MSG_BLOCK_T, szData) == 12 &&
              sizeof(VYX_MSG_BLOCK_T) == 8108);
static_assert(offsetof(VYX_NETWORKEVENTS_T, iErrorCode) == 4 && sizeof(VYX_NETWORKEVENTS_T) == 44);

static_assert(sizeof(VYX_ADDR_T) == 28 && alignof(VYX_ADDR_T) == 4);
static_assert(offsetof(VYX_ADDR_EXP_T, byAddr) == 4 && offsetof(VYX_ADDR_EXP_T, nPort) == 20 &&
              sizeof(VYX_ADDR_EXP_T) == 24);
static_assert(offsetof(VYX_ADDRESS_INFO_T, iFamily) == 4 && offsetof(VYX_ADDRESS_INFO_T, iSockType) == 8 &&
              offsetof(VYX_ADDRESS_INFO_T, iProtocol) == 12 && offsetof(VYX_ADDRESS_INFO_T, struAddr) == 16 &&
              offsetof(VYX_ADDRESS_INFO_T, pCanonName) == kInformationName &&
              sizeof(VYX_ADDRESS_INFO_T) == kInformationName + 2 * kPointer);
static_assert(offsetof(VYX_IPADDR_STRING, szAddr) == kPointer &&
              offsetof(VYX_IPADDR_STRING, szMask) == kPointer + 16 &&
              sizeof(VYX_IPADDR_STRING) == kPointer + 32);
static_assert(offsetof(VYX_IP6ADDR_ENTRY, byAddr) == kPointer &&
              offsetof(VYX_IP6ADDR_ENTRY, byMask) == kPointer + 16 &&
              sizeof(VYX_IP6ADDR_ENTRY) == kPointer + 32);
static_assert(offsetof(VYX_ADAPTER_INFO, nIndex) == kPointer &&
              offsetof(VYX_ADAPTER_INFO, szName) == kPointer + 4 &&
              offsetof(VYX_ADAPTER_INFO, nAddrLen) == kPointer + 396 &&
              offsetof(VYX_ADAPTER_INFO, byAddr) == kPointer + 400 &&
              offsetof(VYX_ADAPTER_INFO, nType) == kPointer + 408 &&
              offsetof(VYX_ADAPTER_INFO, pIpAddrList) == kAdapterLists &&
              offsetof(VYX_ADAPTER_INFO, pIp6AddrList) == kAdapterLists + 3 * kPointer &&
              sizeof(VYX_ADAPTER_INFO) == kAdapterLists + 4 * kPointer);

static_assert(sizeof(VYX_TIME_EXP_T) == 44 && offsetof(VYX_TIME_EXP_T, tm_gmtoff) == 40);

static_assert(offsetof(VYX_FINFO_T, perm) == 12 && offsetof(VYX_FINFO_T, nlink) == 20 &&
              offsetof(VYX_FINFO_T, inode) == 24 && offsetof(VYX_FINFO_T, size) == 32 &&
              offsetof(VYX_FINFO_T, mtime) == 56 && sizeof(VYX_FINFO_T) == 64);
static_assert(offsetof(_FILE_FIND_INFO, finfo) == Aligned(260, alignof(VYX_FINFO_T)) &&
              sizeof(_FILE_FIND_INFO) == Aligned(260, alignof(VYX_FINFO_T)) + 64);
static_assert(sizeof(VYX_MEMORY_STATUS_T) == 48 && sizeof(VYX_CPU_PERFORMANCE_T) == 56);

static_assert(offsetof(_VYX_ENTRY, data) == kPointer && sizeof(_VYX_ENTRY) == 2 * kPointer);
static_assert(offsetof(_VYX_INTITEM, data) == kPointer && sizeof(_VYX_INTITEM) == 2 * kPointer);
static_assert(offsetof(struct VYX_HSEARCH_DATA, size) == kPointer &&
              offsetof(struct VYX_HSEARCH_DATA, filled) == kPointer + 4 &&
              sizeof(struct VYX_HSEARCH_DATA) == kPointer + 8);
static_assert(offsetof(struct VYX_HSEARCH_INTDATA, size) == kPointer &&
              offsetof(struct VYX_HSEARCH_INTDATA, filled) == kPointer + 4 &&
              sizeof(struct VYX_HSEARCH_INTDATA) == kPointer + 8);

} // namespace
