// The size, the alignment and the fields' offsets of every public record, and the sizes of the classes.
#include <vyx/vyx.h>

#include "transcript.h"

namespace transcript {

namespace {

std::string s_text;

void Add(const std::string &name, size_t nSize, size_t nAlignment) {
    s_text += name + ": size " + std::to_string(nSize) + ", alignment " + std::to_string(nAlignment) + "\n";
}

void Add(const std::string &name, size_t nOffset) {
    s_text += "  " + name + " at " + std::to_string(nOffset) + "\n";
}

#define RECORD(type) Add(#type, sizeof(type), alignof(type))
#define FIELD(type, field) Add(#field, offsetof(type, field))

void Messages() {
    RECORD(VYX_MSG_BLOCK_T);
    FIELD(VYX_MSG_BLOCK_T, iMsgType);
    FIELD(VYX_MSG_BLOCK_T, iPriority);
    FIELD(VYX_MSG_BLOCK_T, iDataLen);
    FIELD(VYX_MSG_BLOCK_T, szData);
    RECORD(VYX_NETWORKEVENTS_T);
    FIELD(VYX_NETWORKEVENTS_T, lNetworkEvents);
    FIELD(VYX_NETWORKEVENTS_T, iErrorCode);
}

void Network() {
    RECORD(VYX_ADDR_T);
    RECORD(VYX_ADDR_EXP_T);
    FIELD(VYX_ADDR_EXP_T, nFamily);
    FIELD(VYX_ADDR_EXP_T, byAddr);
    FIELD(VYX_ADDR_EXP_T, nPort);
    RECORD(VYX_ADDRESS_INFO_T);
    FIELD(VYX_ADDRESS_INFO_T, iFlags);
    FIELD(VYX_ADDRESS_INFO_T, iFamily);
    FIELD(VYX_ADDRESS_INFO_T, iSockType);
    FIELD(VYX_ADDRESS_INFO_T, iProtocol);
    FIELD(VYX_ADDRESS_INFO_T, struAddr);
    FIELD(VYX_ADDRESS_INFO_T, pCanonName);
    FIELD(VYX_ADDRESS_INFO_T, pNext);
    RECORD(VYX_IPADDR_STRING);
    FIELD(VYX_IPADDR_STRING, szAddr);
    FIELD(VYX_IPADDR_STRING, szMask);
    RECORD(VYX_IP6ADDR_ENTRY);
    FIELD(VYX_IP6ADDR_ENTRY, byAddr);
    FIELD(VYX_IP6ADDR_ENTRY, byMask);
}

void Adapters() {
    RECORD(VYX_ADAPTER_INFO);
    FIELD(VYX_ADAPTER_INFO, pNext);
    FIELD(VYX_ADAPTER_INFO, nIndex);
    FIELD(VYX_ADAPTER_INFO, szName);
    FIELD(VYX_ADAPTER_INFO, nAddrLen);
    FIELD(VYX_ADAPTER_INFO, byAddr);
    FIELD(VYX_ADAPTER_INFO, nType);
    FIELD(VYX_ADAPTER_INFO, pIpAddrList);
    FIELD(VYX_ADAPTER_INFO, pReservedList1);
    FIELD(VYX_ADAPTER_INFO, pReservedList2);
    FIELD(VYX_ADAPTER_INFO, pIp6AddrList);
}

void FileRecords() {
    RECORD(VYX_FINFO_T);
    FIELD(VYX_FINFO_T, type);
    FIELD(VYX_FINFO_T, uid);
    FIELD(VYX_FINFO_T, gid);
    FIELD(VYX_FINFO_T, perm);
    FIELD(VYX_FINFO_T, rdev);
    FIELD(VYX_FINFO_T, nlink);
    FIELD(VYX_FINFO_T, inode);
    FIELD(VYX_FINFO_T, size);
    FIELD(VYX_FINFO_T, atime);
    FIELD(VYX_FINFO_T, ctime);
    FIELD(VYX_FINFO_T, mtime);
    RECORD(_FILE_FIND_INFO);
    FIELD(_FILE_FIND_INFO, name);
    FIELD(_FILE_FIND_INFO, finfo);
    RECORD(VYX_MEMORY_STATUS_T);
    RECORD(VYX_CPU_PERFORMANCE_T);
}

void Time() {
    RECORD(VYX_TIME_EXP_T);
    FIELD(VYX_TIME_EXP_T, tm_usec);
    FIELD(VYX_TIME_EXP_T, tm_sec);
    FIELD(VYX_TIME_EXP_T, tm_min);
    FIELD(VYX_TIME_EXP_T, tm_hour);
    FIELD(VYX_TIME_EXP_T, tm_mday);
    FIELD(VYX_TIME_EXP_T, tm_mon);
    FIELD(VYX_TIME_EXP_T, tm_year);
    FIELD(VYX_TIME_EXP_T, tm_wday);
    FIELD(VYX_TIME_EXP_T, tm_yday);
    FIELD(VYX_TIME_EXP_T, tm_isdst);
    FIELD(VYX_TIME_EXP_T, tm_gmtoff);
}

void Tables() {
    RECORD(_VYX_ENTRY);
    FIELD(_VYX_ENTRY, key);
    FIELD(_VYX_ENTRY, data);
    RECORD(_VYX_INTITEM);
    FIELD(_VYX_INTITEM, key);
    FIELD(_VYX_INTITEM, data);
    RECORD(struct VYX_HSEARCH_DATA);
    FIELD(struct VYX_HSEARCH_DATA, table);
    FIELD(struct VYX_HSEARCH_DATA, size);
    FIELD(struct VYX_HSEARCH_DATA, filled);
    RECORD(struct VYX_HSEARCH_INTDATA);
    FIELD(struct VYX_HSEARCH_INTDATA, table);
    FIELD(struct VYX_HSEARCH_INTDATA, size);
    FIELD(struct VYX_HSEARCH_INTDATA, filled);
}

void Classes() {
    RECORD(VYX_Mutex);
    RECORD(VYX_Sema);
    RECORD(VYX_Thread);
    RECORD(VYX_ThreadPool);
    RECORD(vyx::vyx_mutex);
    RECORD(vyx::vyx_recursive_mutex);
    RECORD(vyx::vyx_sem);
    RECORD(vyx::vyx_msgq);
    RECORD(vyx::vyx_time);
    RECORD(vyx::vyx_time_tick);
    RECORD(vyx::vyx_string);
}

} // namespace

std::string Layout() {
    s_text.clear();
    Messages();
    Network();
    Adapters();
    FileRecords();
    Time();
    Tables();
    Classes();
    return s_text;
}

} // namespace transcript
