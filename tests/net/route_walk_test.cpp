// Routing messages made by hand, in both byte orders, whole, cut off and broken.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/adapter_inter.h"
#include "net/adapter_text.h"
#include "net/route_walk.h"

namespace {

using vyx_inter::ByteOrder;
using Buffer = std::vector<uint8_t>;

constexpr uint8_t kOther = 0x0D; // a message of no interest
constexpr uint32_t kUpAndRunning = 0x8843;

Buffer operator+(Buffer a, const Buffer &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A socket address of a length, which it tells itself.
Buffer Record(size_t nSize, uint8_t nLength, uint8_t nFamily, size_t nAt, const Buffer &bytes) {
    Buffer record(nSize);
    record[0] = nLength;
    record[1] = nFamily;
    std::copy_n(bytes.begin(), std::min(bytes.size(), nSize - nAt), record.begin() + static_cast<long>(nAt));
    return record;
}

// The kernel cuts an IPv4 mask's trailing zeros and pads it to 4 bytes.
Buffer IpMask(uint8_t nLength, const Buffer &bytes) {
    return Record(8, nLength, 2, 4, bytes);
}

Buffer Ip(const Buffer &bytes) {
    return Record(16, 16, 2, 4, bytes);
}

Buffer Ip6(const char *szText, uint8_t nLength = 28) {
    Buffer bytes(16);
    EXPECT_EQ(inet_pton(AF_INET6, szText, bytes.data()), 1);
    return Record(nLength, nLength, 30, 8, bytes);
}

// The messages as the kernel lays them out. The sizes are written down here once more on purpose.
class RouteWalk : public testing::TestWithParam<ByteOrder> {
  protected:
    const ByteOrder order = GetParam();
    Buffer Two(uint32_t n) const {
        const Buffer bytes = {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)};
        return order == ByteOrder::Little ? bytes : Buffer{bytes[1], bytes[0]};
    }
    // With its own length in front, or another one.
    Buffer Message(uint8_t nType, const Buffer &body, int iLength = -1) const {
        return Two(iLength < 0 ? static_cast<uint32_t>(body.size()) + 4 : static_cast<uint32_t>(iLength)) +
               Buffer{5, nType} + body;
    }
    Buffer Cut(const Buffer &message, long iSize) const {
        return Message(message[3], Buffer(message.begin() + 4, message.begin() + iSize));
    }
    Buffer Interface(uint32_t nIndex, uint32_t nFlags, const std::string &name, const Buffer &address,
                     uint8_t nType = 6) const {
        const Buffer flags =
            order == ByteOrder::Little ? Two(nFlags) + Two(nFlags >> 16) : Two(nFlags >> 16) + Two(nFlags);
        Buffer link =
            Buffer{0, 18} + Two(nIndex) +
            Buffer{nType, static_cast<uint8_t>(name.size()), static_cast<uint8_t>(address.size()), 0} +
            Buffer(name.begin(), name.end()) + address;
        link.resize(std::max<size_t>(20, (link.size() + 3) / 4 * 4));
        link[0] = static_cast<uint8_t>(link.size());
        return Message(0x0E, Buffer(4) + flags + Two(nIndex) + Buffer(98) + link);
    }
    Buffer Address(uint32_t nIndex, const Buffer &mask, const Buffer &address) const {
        return Message(0x0C, Buffer(8) + Two(nIndex) + Buffer(6) + mask + address);
    }
    Buffer Ethernet() const { return Interface(4, kUpAndRunning, "en0", {2, 1, 2, 3, 4, 5}); }
    Buffer Ip6Message() const { return Address(4, Ip6("ffff:ffff:ffff:ffff::"), Ip6("fd00::1")); }
    // Two adapters among others, all kinds of addresses.
    Buffer Whole() const {
        return Interface(0x101, 0x8049, "lo0", {}, 24) +
               Address(0x101, IpMask(5, {255}), Ip({127, 0, 0, 1})) + Interface(2, 0x8802, "down", {2, 9}) +
               Interface(3, 0x8803, "still", {2, 9}) + Interface(5, 0x8842, "odd", {2, 9}) + Ethernet() +
               Address(4, IpMask(7, {255, 255, 240}), Ip({10, 1, 2, 3})) +
               Address(4, Buffer(8), Ip({10, 9, 9, 9})) + // no family
               Address(5, IpMask(8, {255, 255, 255, 255}), Ip({10, 8, 8, 8})) + Message(kOther, Buffer(16)) +
               Ip6Message();
    }
    const std::string loopback = "257: lo0 type 24 mac  127.0.0.1/255.0.0.0\n";
    const std::string bareEthernet = "4: en0 type 6 mac 02:01:02:03:04:05";
    const std::string ethernetIp = bareEthernet + " 10.1.2.3/255.255.240.0";
    const std::string whole = loopback + ethernetIp + " | fd00::1/ffff:ffff:ffff:ffff::\n";

    // Walks a block of exactly that size, `nOffset` bytes from an aligned address, so that sanitizers see every byte
    // read outside it; one line for each adapter.
    std::string Walk(const Buffer &buffer, size_t nOffset = 0) const {
        const std::unique_ptr<uint8_t[]> block(new uint8_t[buffer.size() + nOffset]);
        std::copy(buffer.begin(), buffer.end(), block.get() + nOffset);
        vyx_inter::AdapterList list;
        vyx_inter::WalkRoutingMessages(block.get() + nOffset, buffer.size(), order, &list);
        VYX_ADAPTER_INFO *pList = nullptr;
        EXPECT_EQ(list.Finish(&pList), VYX_OK);
        const vyx_inter::AdapterListHolder holder(pList);
        std::string text;
        for (const auto *p = pList; p != nullptr; p = p->pNext)
            text += std::to_string(p->nIndex) + ": " + adapter_text::Describe(*p) + "\n";
        return text;
    }
};

INSTANTIATE_TEST_SUITE_P(Orders, RouteWalk, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto &order) { return order.param == ByteOrder::Big ? "Big" : "Little"; });

TEST_P(RouteWalk, ListsWhatIsUpAndRunningAtAnyAlignment) {
    for (size_t nOffset = 0; nOffset < 4; ++nOffset)
        EXPECT_EQ(Walk(Whole(), nOffset), whole) << nOffset;
    EXPECT_EQ(Walk(Ip6Message() + Ethernet()), bareEthernet + " | fd00::1/ffff:ffff:ffff:ffff::\n")
        << "an address may come before its interface";
    const std::string name(200, 'n');
    EXPECT_EQ(Walk(Interface(7, kUpAndRunning, name, Buffer(20, 0xA0))),
              "7: " + name + " type 6 mac a0:a0:a0:a0:a0:a0:a0:a0\n");
}

TEST_P(RouteWalk, SkipsAnIp6MaskByItsOwnLength) {
    for (const uint8_t nLength : {uint8_t{24}, uint8_t{26}, uint8_t{27}, uint8_t{28}, uint8_t{40}})
        EXPECT_EQ(Walk(Ethernet() + Address(4, Ip6("ffff::", nLength), Ip6("fd00::2"))),
                  bareEthernet + " | fd00::2/ffff::\n")
            << int{nLength};
}

// What stands in front of a good message, and whether the walk gets to that one.
TEST_P(RouteWalk, PassesOverOrStopsAtBrokenMessages) {
    const Buffer interface = Interface(9, kUpAndRunning, "bad", {1, 2, 3, 4, 5, 6});
    Buffer longName = interface;
    Buffer longAddress = interface;
    longName[112 + 5] = 255;
    longAddress[112 + 6] = 255;
    const Buffer ip = Address(4, IpMask(7, {255, 255, 240}), Ip({10, 1, 2, 3}));
    const Buffer ip6 = Address(4, Ip6("ffff::"), Ip6("fd00::2"));
    const struct {
        const char *szName;
        Buffer bytes;
        bool bGoesOn;
    } cases[] = {
        {"length 0", Message(kOther, Buffer(16), 0), false},
        {"length 3", Message(kOther, Buffer(16), 3), false},
        {"length beyond the end", Message(kOther, Buffer(16), 0xFFFF), false},
        {"the start only", Message(0x0E, {}), true},
        {"an interface's header only", Cut(interface, 112), true},
        {"a link address without its last byte", Cut(interface, 112 + 8 + 3 + 5), true},
        {"a name longer than the message", longName, true},
        {"a hardware address longer than the message", longAddress, true},
        {"an address's start only", Cut(ip, 4), true},
        {"an address's header only", Cut(ip, 20), true},
        {"half a family", Cut(ip, 21), true},
        {"an IPv4 address without its last byte", Cut(ip, 20 + 15), true},
        {"an IPv6 mask without its last byte", Cut(ip6, 20 + 23), true},
        {"an IPv6 address without its last byte", Cut(ip6, 20 + 28 + 23), true},
        {"an IPv6 mask longer than the message", Address(4, Ip6("::", 255), {}), true},
    };
    for (const auto &broken : cases) {
        EXPECT_EQ(Walk(broken.bytes + Ethernet()), broken.bGoesOn ? bareEthernet + "\n" : "")
            << broken.szName;
        EXPECT_EQ(Walk(Ethernet() + broken.bytes), bareEthernet + "\n") << broken.szName;
    }
}

} // namespace
