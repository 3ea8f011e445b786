// What becomes of the kernel's messages about links and addresses, which the tests make up and the linker puts in
// (CMakeLists.txt).
#include <algorithm>
#include <cerrno>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <vector>

#include <gtest/gtest.h>

#include "net/adapter_text.h"

namespace {

using Bytes = std::string;

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

struct Datagram {
    Bytes bytes;
    uint32_t nSender = 0; // the kernel
};
using Answer = std::vector<Datagram>;

// The kernel: one answer for each request in turn.
std::vector<Answer> s_answers;
Answer s_left;        // of the answer to the last request
std::string s_asked;  // L: for links, A: for addresses
uint32_t s_nSequence; // of the last request
int s_iReceives;

// Every other call is interrupted.
ssize_t Receive(void *pBuf, size_t nSize, int iFlags, sockaddr_nl *pFrom) {
    errno = ++s_iReceives % 2 == 1 ? EINTR : ENOBUFS;
    if (errno == EINTR || s_left.empty())
        return -1;
    const Datagram datagram = s_left.front();
    if ((iFlags & MSG_PEEK) == 0)
        s_left.erase(s_left.begin());
    pFrom->nl_pid = datagram.nSender;
    const size_t nCount = std::min(nSize, datagram.bytes.size());
    auto *const pBytes = static_cast<char *>(pBuf);
    std::copy_n(datagram.bytes.data(), nCount, pBytes);
    nlmsghdr header = {};
    for (size_t n = 0; n + sizeof header <= nCount; n += std::max<size_t>(NLMSG_ALIGN(header.nlmsg_len), 4)) {
        std::memcpy(&header, pBytes + n, sizeof header);
        header.nlmsg_seq += header.nlmsg_len < sizeof header ? 0 : s_nSequence;
        std::memcpy(pBytes + n, &header, sizeof header);
    }
    return static_cast<ssize_t>((iFlags & MSG_TRUNC) != 0 ? datagram.bytes.size() : nCount);
}

} // namespace

extern "C" {
ssize_t __wrap_sendto(int /*iFd*/, const void *pBuf, size_t nLen, int /*iFlags*/, const sockaddr * /*pTo*/,
                      socklen_t /*nToLen*/) {
    const auto &header = *static_cast<const nlmsghdr *>(pBuf);
    EXPECT_EQ(header.nlmsg_flags, NLM_F_REQUEST | NLM_F_DUMP);
    s_left = s_answers.at(s_asked.size());
    s_asked += header.nlmsg_type == RTM_GETLINK ? 'L' : 'A';
    s_nSequence = header.nlmsg_seq;
    return static_cast<ssize_t>(nLen);
}
ssize_t __wrap_recvfrom(int /*iFd*/, void *pBuf, size_t nLen, int iFlags, sockaddr *pFrom,
                        socklen_t * /*pFromLen*/) {
    return Receive(pBuf, nLen, iFlags, reinterpret_cast<sockaddr_nl *>(pFrom));
}
}

namespace {

TEST(Netlink, AdaptersAreWhatTheKernelTells) {
    constexpr unsigned kBoth = IFF_UP | IFF_RUNNING;
    const Bytes mac("\2\x11\x22\x33\x44\x55", 6);
    const Bytes ten("\x0a\1\2\3", 4);
    const Bytes six("\xfd\xf1\x34\x56\0\0\0\0\0\0\0\0\0\0\0\7", 16);
    const Bytes lo = Link(1, kBoth, "lo", Bytes(6, '\0'));
    const Bytes eth = Link(3, kBoth, "eth0", mac);
    const Bytes done = Message(NLMSG_DONE, Raw(0));
    const Bytes refused = Message(NLMSG_ERROR, Raw(-EPERM) + Bytes(16, '\0'));
    const Bytes busy = Message(NLMSG_DONE, Raw(-EBUSY));
    const Bytes empty = Message(RTM_NEWLINK, "") + Message(RTM_NEWADDR, "");
    const Bytes headless = Raw(uint32_t{4}) + Link(5, kBoth, "behind", mac);
    const Answer changing = {{Link(8, kBoth, "old", mac, NLM_F_DUMP_INTR) + done}};
    const Answer none = {{done}};
    // Of two ends the own counts.
    const Bytes ends = Address(3, AF_INET, 32, Attribute(IFA_ADDRESS, "peer") + Attribute(IFA_LOCAL, "self"));
    const Answer addresses = {
        {Address(1, AF_INET, 8, Attribute(IFA_LOCAL, {"\x7f\0\0\1", 4})) +
         Address(3, AF_INET, 20, Attribute(IFA_LABEL, "alias") + Attribute(IFA_ADDRESS, ten)) +
         Address(3, AF_UNIX, 20, Attribute(IFA_LOCAL, ten))},
        {Address(3, AF_INET6, 20, Attribute(IFA_LOCAL, ten)) + ends}, // too short, and whole
        {Address(3, AF_INET6, 61, Attribute(IFA_LOCAL, six)) + empty + done},
    };
    const std::string loText = "1: lo type 1 mac 00:00:00:00:00:00 127.0.0.1/255.0.0.0\n";
    const std::string ethText = "3: eth0 type 1 mac 02:11:22:33:44:55 10.1.2.3/255.255.240.0 "
                                "115.101.108.102/255.255.255.255 | fdf1:3456::7/ffff:ffff:ffff:fff8::\n";
    const struct {
        const char *szName;
        std::vector<Answer> answers;
        std::string expected;
        std::string asked = "LA";
    } cases[] = {
        {"all of it",
         {{{lo + Link(2, IFF_UP, "still", mac)}, {Link(4, IFF_RUNNING, "down", mac) + eth}, {done}},
          addresses},
         loText + ethText},
        {"others' datagrams",
         {{{eth + done, 77}, {lo}, {eth, 77}, {eth + done}}, addresses},
         loText + ethText},
        {"the end of another request",
         {{{Message(NLMSG_DONE, Raw(0), 0, 5)}, {lo + done}}, addresses},
         loText},
        {"a list that changed", {changing, changing, {{lo + done}}, addresses}, loText, "LLLA"},
        {"a list that keeps changing",
         {changing, changing, changing, changing, changing, none},
         "8: old type 1 mac 02:11:22:33:44:55\n",
         "LLLLLA"},
        {"no adapter", {none, addresses}, ""},
        {"messages cut, without a header and without a record",
         {{{empty + eth + done + lo.substr(0, 48)}}, addresses},
         ethText},
        {"a message shorter than its header", {{{eth + done + headless}}, addresses}, ethText},
        {"a long name and hardware address",
         {{{Link(7, kBoth, Bytes(500, 'n'), "123456789") + done}}, none},
         "7: " + Bytes(391, 'n') + " type 1 mac 31:32:33:34:35:36:37:38\n"},
        {"a refusal", {{{refused}}}, std::strerror(EPERM), "L"},
        {"a failure at the end", {{{eth}, {busy}}}, std::strerror(EBUSY), "L"},
        {"no end", {{{lo + done}}, {{ends}}}, std::strerror(ENOBUFS)},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        s_answers = test.answers;
        s_asked.clear();
        EXPECT_EQ(adapter_text::Adapters(), test.expected);
        EXPECT_EQ(s_asked, test.asked);
    }
}

} // namespace
