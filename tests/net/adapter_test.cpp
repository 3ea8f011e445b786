// Adapters: what becomes of the kernel's messages, which the tests make up and the linker puts in (CMakeLists.txt).
#include <algorithm>
#include <cerrno>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <map>
#include <net/if.h>
#include <net/if_arp.h>
#include <sstream>

#include "net/adapter_inter.h"
#include "net/adapter_text.h"
#include "net/net_support.h"
#include "support/failing_memory.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::string;

// ---- Messages

template <class Record>
Bytes Raw(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

Bytes Padded(Bytes bytes) {
    return bytes.append((4 - bytes.size() % 4) % 4, '\0');
}

// nRequest: added to the sequence number of the request that it answers.
Bytes Message(uint16_t nType, const Bytes &body, uint16_t nFlags = 0, uint32_t nRequest = 0) {
    const nlmsghdr header = {static_cast<uint32_t>(sizeof header + body.size()), nType, nFlags, nRequest, 0};
    return Padded(Raw(header) + body);
}

Bytes Attribute(uint16_t nType, const Bytes &value) {
    const rtattr attribute = {static_cast<uint16_t>(sizeof attribute + value.size()), nType};
    return Padded(Raw(attribute) + value);
}

constexpr unsigned kBoth = IFF_UP | IFF_RUNNING;

Bytes Link(int iIndex, unsigned nFlags, const Bytes &name, const Bytes &mac, uint16_t nMessageFlags = 0) {
    ifinfomsg link = {};
    link.ifi_index = iIndex;
    link.ifi_type = ARPHRD_ETHER;
    link.ifi_flags = nFlags;
    return Message(RTM_NEWLINK,
                   Raw(link) + Attribute(IFLA_ADDRESS, mac) + Attribute(IFLA_IFNAME, name + '\0'),
                   nMessageFlags);
}

Bytes Address(int iIndex, int iFamily, int iPrefix, const Bytes &attributes) {
    ifaddrmsg address = {};
    address.ifa_family = static_cast<uint8_t>(iFamily);
    address.ifa_prefixlen = static_cast<uint8_t>(iPrefix);
    address.ifa_index = static_cast<uint32_t>(iIndex);
    return Message(RTM_NEWADDR, Raw(address) + attributes);
}

Bytes Ip(const char *szText) {
    return Raw(inet_addr(szText));
}

Bytes Ip6(const char *szText) {
    in6_addr addr = {};
    EXPECT_EQ(inet_pton(AF_INET6, szText, &addr), 1);
    return Raw(addr);
}

// ---- The kernel

const Bytes kMac("\2\x11\x22\x33\x44\x55", 6);

// The messages that it may send, by name.
const std::map<std::string, Bytes> kMessages = {
    {"lo", Link(1, kBoth, "lo", Bytes(6, '\0'))},
    {"eth0", Link(3, kBoth, "eth0", kMac)},
    {"still", Link(2, IFF_UP, "still", kMac)},
    {"down", Link(4, IFF_RUNNING, "down", kMac)},
    {"changing", Link(8, kBoth, "old", kMac, NLM_F_DUMP_INTR)},
    {"long", Link(7, kBoth, Bytes(500, 'n'), "123456789")},
    {"cut", Link(5, kBoth, "cut", kMac).substr(0, 48)},
    {"headless", Bytes(16, '\1') + Link(5, kBoth, "behind", kMac)},
    {"empty", Message(RTM_NEWLINK, "") + Message(RTM_NEWADDR, "")},
    {"done", Message(NLMSG_DONE, Raw(0))},
    {"busy", Message(NLMSG_DONE, Raw(-EBUSY))},
    {"others-done", Message(NLMSG_DONE, Raw(0), 0, 5)},
    {"fine", Message(NLMSG_ERROR, Raw(0) + Bytes(16, '\0'))},
    {"refused", Message(NLMSG_ERROR, Raw(-EPERM) + Bytes(16, '\0'))},
    {"lo-4", Address(1, AF_INET, 8, Attribute(IFA_LOCAL, Ip("127.0.0.1")))},
    {"lo-6", Address(1, AF_INET6, 128, Attribute(IFA_ADDRESS, Ip6("::1")))},
    {"eth0-4",
     Address(3, AF_INET, 20, Attribute(IFA_LABEL, "alias") + Attribute(IFA_ADDRESS, Ip("10.1.2.3")))},
    {"eth0-6", Address(3, AF_INET6, 61, Attribute(IFA_LOCAL, Ip6("fdf1:3456::7")))},
    // Of two ends the own counts.
    {"ends",
     Address(3, AF_INET, 32, Attribute(IFA_ADDRESS, Ip("10.9.0.2")) + Attribute(IFA_LOCAL, Ip("10.9.0.1")))},
    {"unix", Address(3, AF_UNIX, 20, Attribute(IFA_LOCAL, Ip("10.4.4.4")))},
    {"short", Address(3, AF_INET6, 20, Attribute(IFA_LOCAL, Ip("10.5.5.5")))},
};

const char *const kLinks = "lo still | down eth0 | done";
const char *const kAddresses = "lo-4 eth0-4 unix | short ends | eth0-6 lo-6 done";

struct Datagram {
    Bytes bytes;
    uint32_t nSender; // 0: the kernel
};

// What it sends on one request: messages, datagrams after |, or after ~ those of another sender; after & it answers the
// next request, and the last answer stays.
std::vector<std::vector<Datagram>> AnswersOf(const std::string &script) {
    std::vector<std::vector<Datagram>> answers = {{{"", 0}}};
    std::istringstream words(script);
    for (std::string word; words >> word;) {
        if (word == "&")
            answers.push_back({{"", 0}});
        else if (word == "|" || word == "~")
            answers.back().push_back({"", word == "~" ? 77U : 0U});
        else
            answers.back().back().bytes += kMessages.at(word);
    }
    return answers;
}

struct Kernel;
Kernel *s_pKernel = nullptr; // that is asked

struct Kernel {
    explicit Kernel(const char *szLinks = kLinks, const char *szAddresses = kAddresses)
        : links(AnswersOf(szLinks)), addresses(AnswersOf(szAddresses)) {
        s_pKernel = this;
    }

    std::vector<std::vector<Datagram>> links;
    std::vector<std::vector<Datagram>> addresses;
    int iSocketError = 0;
    int iSendError = 0;
    int iFailing = -1;    // that receive fails
    size_t nRequests = 0; // for links

    const std::vector<Datagram> *pAnswer = nullptr;
    size_t nNext = 0; // datagram
    uint32_t nSequence = 0;
    int iReceives = 0;
};
int Fail(int iError) {
    errno = iError;
    return -1;
}

ssize_t Ask(Kernel *pKernel, const void *pRequest, size_t nSize) {
    const auto &header = *static_cast<const nlmsghdr *>(pRequest);
    const bool bLinks = header.nlmsg_type == RTM_GETLINK;
    EXPECT_EQ(header.nlmsg_flags, NLM_F_REQUEST | NLM_F_DUMP);
    pKernel->pAnswer = bLinks ? &pKernel->links[std::min(pKernel->nRequests++, pKernel->links.size() - 1)]
                              : pKernel->addresses.data();
    pKernel->nNext = 0;
    pKernel->nSequence = header.nlmsg_seq;
    return pKernel->iSendError == 0 ? static_cast<ssize_t>(nSize) : Fail(pKernel->iSendError);
}

// Every other call is interrupted.
ssize_t Receive(Kernel *pKernel, void *pBuf, size_t nSize, int iFlags, sockaddr_nl *pFrom) {
    if (++pKernel->iReceives % 2 == 1)
        return Fail(EINTR);
    if (pKernel->iReceives / 2 == pKernel->iFailing || pKernel->nNext == pKernel->pAnswer->size())
        return Fail(ENOBUFS);
    const Datagram &datagram = (*pKernel->pAnswer)[pKernel->nNext];
    pKernel->nNext += (iFlags & MSG_PEEK) == 0 ? 1 : 0;
    pFrom->nl_pid = datagram.nSender;
    const size_t nCount = std::min(nSize, datagram.bytes.size());
    auto *const pBytes = static_cast<char *>(pBuf);
    std::copy_n(datagram.bytes.data(), nCount, pBytes);
    nlmsghdr header = {};
    for (size_t n = 0; n + sizeof header <= nCount;
         n += std::max<size_t>((header.nlmsg_len + 3) / 4 * 4, 16)) {
        std::memcpy(&header, pBytes + n, sizeof header);
        header.nlmsg_seq += pKernel->nSequence;
        std::memcpy(pBytes + n, &header, sizeof header);
    }
    return static_cast<ssize_t>((iFlags & MSG_TRUNC) != 0 ? datagram.bytes.size() : nCount);
}

} // namespace

extern "C" {
int __wrap_socket(int /*iFamily*/, int /*iType*/, int /*iProtocol*/) {
    return s_pKernel->iSocketError == 0 ? dup(STDERR_FILENO) : Fail(s_pKernel->iSocketError);
}
ssize_t __wrap_sendto(int /*iFd*/, const void *pBuf, size_t nLen, int /*iFlags*/, const sockaddr * /*pTo*/,
                      socklen_t /*nToLen*/) {
    return Ask(s_pKernel, pBuf, nLen);
}
ssize_t __wrap_recvfrom(int /*iFd*/, void *pBuf, size_t nLen, int iFlags, sockaddr *pFrom,
                        socklen_t * /*pFromLen*/) {
    return Receive(s_pKernel, pBuf, nLen, iFlags, reinterpret_cast<sockaddr_nl *>(pFrom));
}
}

namespace {

VYX_ADAPTER_INFO *const kUntouched = reinterpret_cast<VYX_ADAPTER_INFO *>(8);

using adapter_text::Adapters;

const std::string kLoopback = "1: lo type 1 mac 00:00:00:00:00:00";
const std::string kHead = "3: eth0 type 1 mac 02:11:22:33:44:55";
const std::string kExpected = kLoopback +
                              " 127.0.0.1/255.0.0.0 | ::1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff\n" + kHead +
                              " 10.1.2.3/255.255.240.0 10.9.0.1/255.255.255.255 "
                              "| fdf1:3456::7/ffff:ffff:ffff:fff8::\n";

TEST(Adapters, AddressesAreLinkedBehindTheLastOfEitherFamily) {
    const struct {
        const char *szFamilies; // of the addresses 1, 2, 3 ... in their order
        const char *szLists;
    } cases[] = {
        {"", ""},
        {"4", "41"},
        {"6", "| 61"},
        {"4466", "41 42 | 63 64"},
        {"6644", "43 44 | 61 62"},
        {"464", "41 | 62 43"},
        {"646", "42 63 | 61"},
        {"6464646", "42 63 44 65 46 67 | 61"},
    };
    for (const auto &sequence : cases) {
        SCOPED_TRACE(sequence.szFamilies);
        Kernel kernel("eth0 lo done");
        Bytes addresses;
        for (size_t i = 0; sequence.szFamilies[i] != '\0'; ++i) {
            const std::string number = std::to_string(i + 1);
            addresses += kMessages.at("lo-4"); // of another adapter
            addresses +=
                sequence.szFamilies[i] == '4'
                    ? Address(3, AF_INET, 8, Attribute(IFA_LOCAL, Ip(("10.0.0." + number).c_str())))
                    : Address(3, AF_INET6, 8, Attribute(IFA_LOCAL, Ip6(("fd00::" + number).c_str())));
        }
        kernel.addresses[0][0].bytes = addresses + kMessages.at("done");
        std::string expected = kHead;
        std::istringstream words(sequence.szLists);
        for (std::string word; words >> word;)
            expected += word[0] == '|'   ? " |"
                        : word[0] == '4' ? " 10.0.0." + word.substr(1) + "/255.0.0.0"
                                         : " fd00::" + word.substr(1) + "/ff00::";
        EXPECT_EQ(Adapters().substr(0, expected.size() + 1), expected + "\n");
    }
}

TEST(Adapters, ShortOfMemory) {
    const long iDescriptors = support::OpenDescriptors();
    const auto ask = [](int iLeft) {
        const long iBlocks = failing_memory::Alive();
        VYX_ADAPTER_INFO *pList = kUntouched;
        int32_t iResult = 0;
        {
            const failing_memory::Limit memory(iLeft);
            iResult = VYX_GetAdapterInfo(&pList);
        }
        EXPECT_EQ(iResult == VYX_OK, pList != kUntouched) << iLeft;
        EXPECT_TRUE(iResult == VYX_OK || errno == ENOMEM) << iLeft;
        const int iListed = iResult != VYX_OK ? -1 : pList == nullptr ? 0 : pList->pNext == nullptr ? 1 : 2;
        if (iResult == VYX_OK)
            (void)VYX_FreeAdapterInfo(pList);
        EXPECT_EQ(failing_memory::Alive(), iBlocks) << iLeft;
        return iListed;
    };
    // A buffer and two adapters: none of them is listed if the second cannot be.
    const int expected[] = {-1, 0, 0, 2};
    for (int iLeft = 0; iLeft < 4; ++iLeft) {
        Kernel kernel("lo eth0 done", "done");
        EXPECT_EQ(ask(iLeft), expected[iLeft]) << iLeft;
    }
    int iLeft = 4;
    for (int iListed = -1; iListed != 2 && iLeft < 100; ++iLeft) {
        Kernel kernel;
        iListed = ask(iLeft);
        EXPECT_NE(iListed, 1) << iLeft;
    }
    EXPECT_GT(iLeft, 10) << "each address takes memory, too";
    EXPECT_LT(iLeft, 100);
    EXPECT_EQ(support::OpenDescriptors(), iDescriptors);
}

TEST(Adapters, TheReservedListsAreFreedToo) {
    EXPECT_EQ(VYX_FreeAdapterInfo(nullptr), 0);
    const long iBefore = failing_memory::Alive();
    auto *const pAdapter = new VYX_ADAPTER_INFO();
    pAdapter->pReservedList1 = new VYX_IPADDR_STRING();
    pAdapter->pReservedList2 = new VYX_IPADDR_STRING();
    pAdapter->pReservedList2->pNext = new VYX_IPADDR_STRING();
    EXPECT_EQ(VYX_FreeAdapterInfo(pAdapter), 0);
    EXPECT_EQ(failing_memory::Alive(), iBefore);
}

TEST(Adapters, FromTheKernelsMessages) {
    const std::string eth0 = kExpected.substr(kExpected.find("3:"));
    const struct {
        const char *szName;
        const char *szLinks;
        const char *szAddresses;
        std::string expected;
        size_t nRequests = 1; // for links
    } cases[] = {
        {"all of it", kLinks, kAddresses, kExpected},
        {"others' datagrams", "~ eth0 done | lo | ~ eth0 | still eth0 done", kAddresses, kExpected},
        {"the end of another request", "others-done | lo eth0 | done", kAddresses, kExpected},
        {"a list that changed", "changing done & changing | done & lo eth0 done", kAddresses, kExpected, 3},
        {"a list that keeps changing", "changing done", "done", "8: old type 1 mac 02:11:22:33:44:55\n", 5},
        {"no adapter", "done", kAddresses, ""},
        {"an error that is none", "fine", kAddresses, ""},
        {"a message beyond its datagram", "eth0 done cut", kAddresses, eth0},
        {"a message shorter than its header", "eth0 done headless", kAddresses, eth0},
        {"messages without their record", "empty eth0 done", "empty eth0-4 ends eth0-6 done", eth0},
        {"a long name and hardware address", "long done", "done",
         "7: " + Bytes(391, 'n') + " type 1 mac 31:32:33:34:35:36:37:38\n"},
        {"a refusal", "refused", kAddresses, std::strerror(EPERM)},
        {"a refusal of addresses", kLinks, "lo-4 refused", std::strerror(EPERM)},
        {"a failure at the end", "eth0 | busy", kAddresses, std::strerror(EBUSY)},
        {"no end", kLinks, "lo-4", std::strerror(ENOBUFS)},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        Kernel kernel(test.szLinks, test.szAddresses);
        EXPECT_EQ(Adapters(), test.expected);
        EXPECT_EQ(kernel.nRequests, test.nRequests);
    }
    const struct {
        int Kernel::*piField;
        int iValue;
        int iError;
    } failures[] = {{&Kernel::iSocketError, EMFILE, EMFILE},
                    {&Kernel::iSendError, EPERM, EPERM},
                    {&Kernel::iFailing, 1, ENOBUFS},
                    {&Kernel::iFailing, 2, ENOBUFS}};
    for (const auto &failure : failures) {
        Kernel kernel;
        kernel.*failure.piField = failure.iValue;
        EXPECT_EQ(Adapters(), std::strerror(failure.iError));
    }
}

TEST(MacAddress, ComparesTheRawBytes) {
    Kernel kernel("eth0 lo long done");
    const std::string whole = "\xfd\xf1\x34\x56\x78\x9a\xbc\xde\xf1\x23\x45\x67\x89\xab\xcd\xef";
    const auto six = [](int iIndex, const Bytes &bytes) {
        return Address(iIndex, AF_INET6, 128, Attribute(IFA_LOCAL, bytes));
    };
    kernel.addresses[0][0].bytes =
        six(3, whole) + six(3, Ip6("::")) + six(1, Ip6("::1")) + six(1, Ip6("fd80::")) +
        Address(7, AF_INET, 8, Attribute(IFA_LOCAL, Ip("10.1.2.3"))) + kMessages.at("done");
    const std::string ethernet = "02:11:22:33:44:55:55:55";
    const std::string nothing = "55:55:55:55:55:55:55:55";
    const struct {
        const char *szName;
        std::string text;
        std::string bytes;
    } cases[] = {
        {"all bytes", whole, ethernet},
        {"one fewer", whole.substr(0, 15), nothing},
        {"the mask's bytes behind", whole + std::string(16, '\xff'), nothing},
        {"printed", "fdf1:3456:789a:bcde:f123:4567:89ab:cdef", nothing},
        {"::1 begins with a zero", "", "00:00:00:00:00:00:55:55"},
        {"not the first of its adapter", "\xfd\x80", nothing},
        {"an IPv4 address of an adapter without IPv6", "10.1.2.3", nothing},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        uint8_t bytes[8];
        std::memset(bytes, 0x55, sizeof bytes);
        uint32_t nLength = 1; // does not limit what is written
        EXPECT_EQ(VYX_GetMacAddr(test.text.c_str(), bytes, &nLength),
                  test.bytes == nothing ? VYX_ERROR : VYX_OK);
        EXPECT_EQ(nLength, 6U);
        EXPECT_EQ(adapter_text::Hex(bytes, sizeof bytes), test.bytes);
    }
    uint8_t bytes[8] = {};
    uint32_t nLength = 9;
    kernel.addresses[0][0].bytes = six(7, whole) + kMessages.at("done");
    EXPECT_EQ(VYX_GetMacAddr(whole.c_str(), bytes, &nLength), VYX_OK);
    EXPECT_TRUE(nLength == 8 && bytes[7] == '8');
    kernel.iSocketError = EMFILE;
    EXPECT_EQ(VYX_GetMacAddr(whole.c_str(), bytes, &nLength), VYX_ERROR);
    EXPECT_EQ(nLength, 6U);
}

} // namespace
