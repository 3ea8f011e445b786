// Routing messages made by hand, in both byte orders, whole, cut off and broken.
#include <algorithm>
#include <iterator>
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
constexpr uint8_t kEthernet = 6;

// One message as the kernel lays it out. The sizes are written down here once more on purpose.
class Message {
  public:
    Message(ByteOrder order, uint8_t nType, size_t nHeader) : m_order(order), m_bytes(nHeader) {
        m_bytes[2] = 5;
        m_bytes[3] = nType;
    }
    static Message Interface(ByteOrder order, uint16_t nIndex, uint32_t nFlags, const std::string &name,
                             const Buffer &address, uint8_t nType = kEthernet) {
        Message message(order, 0x0E, 112);
        message.Put16(8, static_cast<uint16_t>(order == ByteOrder::Big ? nFlags >> 16 : nFlags));
        message.Put16(10, static_cast<uint16_t>(order == ByteOrder::Big ? nFlags : nFlags >> 16));
        message.Put16(12, nIndex);
        Buffer link(8);
        link[1] = 18;
        link[4] = nType;
        link[5] = static_cast<uint8_t>(name.size());
        link[6] = static_cast<uint8_t>(address.size());
        std::copy(name.begin(), name.end(), std::back_inserter(link));
        std::copy(address.begin(), address.end(), std::back_inserter(link));
        link.resize(std::max<size_t>(20, (link.size() + 3) / 4 * 4));
        link[0] = static_cast<uint8_t>(link.size());
        message.Append(link);
        message.Put16(112 + 2, nIndex);
        return message;
    }
    static Message Address(ByteOrder order, uint16_t nIndex, const Buffer &mask, const Buffer &address) {
        Message message(order, 0x0C, 20);
        message.Put16(12, nIndex);
        message.Append(mask);
        message.Append(address);
        return message;
    }
    void Put16(size_t nAt, uint16_t nValue) {
        m_bytes[nAt] = static_cast<uint8_t>(m_order == ByteOrder::Big ? nValue >> 8 : nValue);
        m_bytes[nAt + 1] = static_cast<uint8_t>(m_order == ByteOrder::Big ? nValue : nValue >> 8);
    }
    void Append(const Buffer &bytes) { std::copy(bytes.begin(), bytes.end(), std::back_inserter(m_bytes)); }
    void Cut(size_t nSize) { m_bytes.resize(nSize); }
    void SetByte(size_t nAt, uint8_t nValue) { m_bytes[nAt] = nValue; }
    // The bytes, with their count in front or another length instead.
    Buffer Bytes(int iLength = -1) {
        Put16(0, static_cast<uint16_t>(iLength < 0 ? static_cast<int>(m_bytes.size()) : iLength));
        return m_bytes;
    }

  private:
    ByteOrder m_order;
    Buffer m_bytes;
};

// Socket addresses. The kernel cuts an IPv4 mask's trailing zeros and pads it to 4 bytes.
Buffer IpMask(uint8_t nLength, std::initializer_list<uint8_t> bytes) {
    Buffer mask(8);
    mask[0] = nLength;
    mask[1] = 2;
    std::copy(bytes.begin(), bytes.end(), mask.begin() + 4);
    return mask;
}

Buffer Ip(std::initializer_list<uint8_t> bytes) {
    Buffer address(16);
    address[0] = 16;
    address[1] = 2;
    std::copy(bytes.begin(), bytes.end(), address.begin() + 4);
    return address;
}

Buffer Ip6(const char *szText, uint8_t nLength = 28) {
    Buffer address(nLength);
    address[0] = nLength;
    address[1] = 30;
    uint8_t bytes[16];
    EXPECT_EQ(inet_pton(AF_INET6, szText, bytes), 1);
    std::copy_n(bytes, std::min<size_t>(16, nLength - 8U), address.begin() + 8);
    return address;
}

Buffer operator+(Buffer a, const Buffer &b) {
    std::copy(b.begin(), b.end(), std::back_inserter(a));
    return a;
}

// Walks a block of exactly that size, `nOffset` bytes from an aligned address, so that sanitizers see every byte read
// outside it; one line for each adapter.
std::string Walk(ByteOrder order, const Buffer &buffer, size_t nOffset = 0) {
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

class RouteWalk : public testing::TestWithParam<ByteOrder> {
  protected:
    const ByteOrder order = GetParam();
    Buffer EthernetMessage() const {
        return Message::Interface(order, 4, kUpAndRunning, "en0", {2, 1, 2, 3, 4, 5}).Bytes();
    }
    Buffer Ip6Message() const {
        return Message::Address(order, 4, Ip6("ffff:ffff:ffff:ffff::"), Ip6("fd00::1")).Bytes();
    }
    // Two adapters among others, all kinds of addresses.
    Buffer Whole() const {
        const auto name = [this](uint16_t nIndex, uint32_t nFlags, const char *szName) {
            return Message::Interface(order, nIndex, nFlags, szName, {2, 9, 9, 9, 9, 9}).Bytes();
        };
        return Message::Interface(order, 0x101, 0x8049, "lo0", {}, 24).Bytes() +
               Message::Address(order, 0x101, IpMask(5, {255}), Ip({127, 0, 0, 1})).Bytes() +
               name(2, 0x8802, "down") + name(3, 0x8803, "still") + name(5, 0x8842, "odd") +
               EthernetMessage() +
               Message::Address(order, 4, IpMask(7, {255, 255, 240}), Ip({10, 1, 2, 3})).Bytes() +
               Message::Address(order, 4, Buffer(8), Ip({10, 9, 9, 9})).Bytes() + // no family
               Message::Address(order, 5, IpMask(8, {255, 255, 255, 255}), Ip({10, 8, 8, 8})).Bytes() +
               Message(order, kOther, 20).Bytes() + Ip6Message();
    }
    const std::string loopback = "257: lo0 type 24 mac  127.0.0.1/255.0.0.0\n";
    const std::string bareEthernet = "4: en0 type 6 mac 02:01:02:03:04:05";
    const std::string ethernetIp = bareEthernet + " 10.1.2.3/255.255.240.0";
    const std::string whole = loopback + ethernetIp + " fd00::1/ffff:ffff:ffff:ffff::\n";
};

INSTANTIATE_TEST_SUITE_P(Orders, RouteWalk, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto &order) { return order.param == ByteOrder::Big ? "Big" : "Little"; });

TEST_P(RouteWalk, ListsWhatIsUpAndRunningAtAnyAlignment) {
    for (size_t nOffset = 0; nOffset < 4; ++nOffset)
        EXPECT_EQ(Walk(order, Whole(), nOffset), whole) << nOffset;
    EXPECT_EQ(Walk(order, {}), "");
    EXPECT_EQ(Walk(order, Ip6Message() + EthernetMessage()),
              bareEthernet + " fd00::1/ffff:ffff:ffff:ffff::\n")
        << "an address may come before its interface";
}

TEST_P(RouteWalk, SkipsAnIp6MaskByItsOwnLength) {
    for (const uint8_t nLength : {uint8_t{24}, uint8_t{26}, uint8_t{27}, uint8_t{28}, uint8_t{40}}) {
        const Buffer message = Message::Address(order, 4, Ip6("ffff::", nLength), Ip6("fd00::2")).Bytes();
        EXPECT_EQ(Walk(order, EthernetMessage() + message), bareEthernet + " fd00::2/ffff::\n")
            << int{nLength};
    }
}

TEST_P(RouteWalk, KeepsLongNamesAndCutsLongHardwareAddresses) {
    const std::string name(200, 'n');
    Buffer address(20);
    for (size_t i = 0; i < address.size(); ++i)
        address[i] = static_cast<uint8_t>(0xA0 + i);
    EXPECT_EQ(Walk(order, Message::Interface(order, 7, kUpAndRunning, name, address).Bytes()),
              "7: " + name + " type 6 mac a0:a1:a2:a3:a4:a5:a6:a7\n");
}

TEST_P(RouteWalk, ListsTheWholeMessagesOfACutBuffer) {
    const Buffer buffer = Whole();
    const size_t nLast = Ip6Message().size();
    const size_t nFirst = Message::Interface(order, 1, 0, "lo0", {}).Bytes().size();
    for (size_t nSize = 0; nSize < buffer.size(); ++nSize) {
        const Buffer cut(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(nSize));
        std::string text = Walk(order, cut);
        if (nSize < nFirst) {
            EXPECT_EQ(text, "") << nSize;
        } else if (nSize + nLast >= buffer.size()) {
            EXPECT_EQ(text, loopback + ethernetIp + "\n") << nSize;
        } else {
            text.pop_back();
            EXPECT_EQ(whole.substr(0, text.size()), text) << nSize;
        }
    }
}

// What stands in front of a good message, and whether the walk gets to that one.
TEST_P(RouteWalk, PassesOverOrStopsAtBrokenMessages) {
    const auto interfaceWith = [this](size_t nAt, uint8_t nValue) {
        Message message = Message::Interface(order, 9, kUpAndRunning, "bad", {1, 2, 3, 4, 5, 6});
        message.SetByte(nAt, nValue);
        return message.Bytes();
    };
    const auto cut = [](Message message, size_t nSize) {
        message.Cut(nSize);
        return message.Bytes();
    };
    const Message interface = Message::Interface(order, 9, kUpAndRunning, "bad", {1, 2, 3, 4, 5, 6});
    const Message ip = Message::Address(order, 4, IpMask(7, {255, 255, 240}), Ip({10, 1, 2, 3}));
    const Message ip6 = Message::Address(order, 4, Ip6("ffff::"), Ip6("fd00::2"));
    const struct {
        const char *szName;
        Buffer bytes;
        bool bGoesOn;
    } cases[] = {
        {"length 0", Message(order, kOther, 20).Bytes(0), false},
        {"length 3", Message(order, kOther, 20).Bytes(3), false},
        {"length beyond the end", Message(order, kOther, 20).Bytes(0xFFFF), false},
        {"the start only", Message(order, 0x0E, 4).Bytes(), true},
        {"an interface's header only", cut(interface, 112), true},
        {"a link address without its last byte", cut(interface, 112 + 8 + 3 + 5), true},
        {"a name longer than the message", interfaceWith(112 + 5, 255), true},
        {"a hardware address longer than the message", interfaceWith(112 + 6, 255), true},
        {"an address's start only", cut(ip, 4), true},
        {"an address's header only", cut(ip, 20), true},
        {"half a family", cut(ip, 21), true},
        {"an IPv4 address without its last byte", cut(ip, 20 + 15), true},
        {"an IPv6 mask without its last byte", cut(ip6, 20 + 23), true},
        {"an IPv6 address without its last byte", cut(ip6, 20 + 28 + 23), true},
        {"an IPv6 mask longer than the message", Message::Address(order, 4, Ip6("::", 255), {}).Bytes(),
         true},
    };
    for (const auto &broken : cases) {
        EXPECT_EQ(Walk(order, broken.bytes + EthernetMessage()), broken.bGoesOn ? bareEthernet + "\n" : "")
            << broken.szName;
        EXPECT_EQ(Walk(order, EthernetMessage() + broken.bytes), bareEthernet + "\n") << broken.szName;
    }
}

// For the sanitizers: no value of any one byte leads outside the buffer or to an endless walk.
TEST_P(RouteWalk, SurvivesEveryBrokenByte) {
    const Buffer buffer = Whole();
    for (size_t i = 0; i < buffer.size(); ++i) {
        for (const uint8_t nValue : {uint8_t{0}, uint8_t{1}, uint8_t{4}, uint8_t{0x7F}, uint8_t{0xFF}}) {
            Buffer broken = buffer;
            broken[i] = nValue;
            EXPECT_LE(Walk(order, broken).size(), 2 * whole.size() + 512) << i;
        }
    }
}

} // namespace
