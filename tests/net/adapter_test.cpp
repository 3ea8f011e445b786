// Adapters from routing messages, which stand in for what the platform reports: made by hand, in both byte orders, whole, cut
// off and broken. What the list is when memory runs out; the search for a hardware address.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/platform.h"
#include "net/adapter_text.h"
#include "net/route_walk.h"
#include "support/failing_memory.h"

using vyx_inter::ByteOrder;
using Buffer = std::vector<uint8_t>;

static ByteOrder s_order = ByteOrder::Little;
static std::unique_ptr<uint8_t[]>
    s_report; // ends with a block, so that sanitizers see every byte read behind it
static size_t s_nOffset, s_nSize;
static int32_t s_iResult = VYX_OK;

// In the place of the platform's.
int32_t VYX_ReadInterfaces_Inter(vyx_inter::AdapterList *pList) {
    vyx_inter::WalkRoutingMessages(s_report.get() + s_nOffset, s_nSize, s_order, pList);
    return s_iResult;
}

namespace {

constexpr uint8_t kOther = 0x0D; // a message of no interest
constexpr uint32_t kUpAndRunning = 0x8843;

void Report(const Buffer &buffer, size_t nOffset = 0) {
    s_nSize = buffer.size();
    s_nOffset = nOffset; // from an aligned address
    s_report.reset(new uint8_t[nOffset + s_nSize]);
    std::copy(buffer.begin(), buffer.end(), s_report.get() + nOffset);
}

// The adapters of a report, one line for each.
std::string Walk(const Buffer &buffer, size_t nOffset = 0) {
    Report(buffer, nOffset);
    return adapter_text::Adapters();
}

Buffer operator+(Buffer a, const Buffer &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Buffer Two(uint32_t n) {
    const Buffer bytes = {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)};
    return s_order == ByteOrder::Little ? bytes : Buffer{bytes[1], bytes[0]};
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
Buffer Ip6(const Buffer &bytes, uint8_t nLength = 28) {
    return Record(nLength, nLength, 30, 8, bytes);
}

// The messages as the kernel lays them out, with their own length in front, or another one. The sizes are written down here
// once more on purpose.
Buffer Message(uint8_t nType, const Buffer &body, int iLength = -1) {
    return Two(iLength < 0 ? static_cast<uint32_t>(body.size()) + 4 : static_cast<uint32_t>(iLength)) +
           Buffer{5, nType} + body;
}
Buffer Interface(uint32_t nIndex, uint32_t nFlags, const std::string &name, const Buffer &address,
                 uint8_t nType = 6) {
    const Buffer flags =
        s_order == ByteOrder::Little ? Two(nFlags) + Two(nFlags >> 16) : Two(nFlags >> 16) + Two(nFlags);
    Buffer link = Buffer{0, 18} + Two(nIndex) +
                  Buffer{nType, static_cast<uint8_t>(name.size()), static_cast<uint8_t>(address.size()), 0} +
                  Buffer(name.begin(), name.end()) + address;
    link.resize(std::max<size_t>(20, (link.size() + 3) / 4 * 4));
    link[0] = static_cast<uint8_t>(link.size());
    return Message(0x0E, Buffer(4) + flags + Two(nIndex) + Buffer(98) + link);
}
Buffer Address(uint32_t nIndex, const Buffer &mask, const Buffer &address) {
    return Message(0x0C, Buffer(8) + Two(nIndex) + Buffer(6) + mask + address);
}
Buffer Address6(uint32_t nIndex, const Buffer &bytes) {
    return Address(nIndex, Ip6({255}), Ip6(bytes));
}
Buffer Loopback() {
    return Interface(0x101, 0x8049, "lo0", {}, 24);
}
Buffer Ethernet() {
    return Interface(4, kUpAndRunning, "en0", {2, 1, 2, 3, 4, 5});
}
const std::string kLoopback = "257: lo0 type 24 mac ";
const std::string kEthernet = "4: en0 type 6 mac 02:01:02:03:04:05";

class RouteWalk : public testing::TestWithParam<ByteOrder> {
  protected:
    RouteWalk() { s_order = GetParam(); }
};
INSTANTIATE_TEST_SUITE_P(Orders, RouteWalk, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto &order) { return order.param == ByteOrder::Big ? "Big" : "Little"; });

TEST_P(RouteWalk, ListsWhatIsUpAndRunningAtAnyAlignment) {
    const std::string name(200, 'n');
    const Buffer all = Loopback() + Address(0x101, IpMask(5, {255}), Ip({127, 0, 0, 1})) +
                       Interface(2, 0x8802, "down", {2, 9}) + Interface(3, 0x8803, "still", {2, 9}) +
                       Interface(5, 0x8842, "odd", {2, 9}) +
                       Address6(4, {0xFD, 1}) + // which comes before its interface
                       Ethernet() + Address(4, IpMask(7, {255, 255, 240}), Ip({10, 1, 2, 3})) +
                       Address(4, Buffer(8), Ip({10, 9, 9, 9})) + // no family
                       Address(5, IpMask(8, {255, 255, 255, 255}), Ip({10, 8, 8, 8})) +
                       Message(kOther, Buffer(16)) + Interface(7, kUpAndRunning, name, Buffer(20, 0xA0));
    for (size_t nOffset = 0; nOffset < 4; ++nOffset)
        EXPECT_EQ(Walk(all, nOffset), kLoopback + " 127.0.0.1/255.0.0.0\n" + kEthernet +
                                          " 10.1.2.3/255.255.240.0 | fd01::/ff00::\n7: " + name +
                                          " type 6 mac a0:a0:a0:a0:a0:a0:a0:a0\n")
            << nOffset;
}

TEST_P(RouteWalk, SkipsAnIp6MaskByItsOwnLength) {
    for (const uint8_t nLength : {uint8_t{24}, uint8_t{26}, uint8_t{27}, uint8_t{28}, uint8_t{40}})
        EXPECT_EQ(Walk(Ethernet() + Address(4, Ip6({255, 255}, nLength), Ip6({0xFD, 2}))),
                  kEthernet + " | fd02::/ffff::\n")
            << int{nLength};
}

TEST_P(RouteWalk, PassesOverOrStopsAtBrokenMessages) {
    // How many bytes of each are needed; what follows must not be taken for the rest.
    const std::pair<Buffer, size_t> wholes[] = {
        {Interface(9, kUpAndRunning, "bad", {1, 2, 3, 4, 5, 6}), 112 + 8 + 3 + 6},
        {Address(4, IpMask(7, {255, 255, 240}), Ip({10, 1, 2, 3})), 20 + 16},
        {Address6(4, {0xFD, 2}), 20 + 28 + 24},
    };
    for (const auto &[whole, nNeeded] : wholes)
        for (size_t nSize = 4; nSize < nNeeded; ++nSize) {
            const Buffer cut = Message(whole[3], Buffer(&whole[4], &whole[nSize]));
            EXPECT_EQ(Walk(cut + Ethernet()), kEthernet + "\n") << nSize;
            EXPECT_EQ(Walk(Ethernet() + cut), kEthernet + "\n") << nSize;
        }
    for (const size_t nAt :
         {size_t{112 + 5}, size_t{112 + 6}}) { // a name, or an address, longer than the message
        Buffer interface = wholes[0].first;
        interface[nAt] = 255;
        EXPECT_EQ(Walk(interface + Ethernet()), kEthernet + "\n") << nAt;
    }
    EXPECT_EQ(Walk(Address(4, Ip6({}, 255), {}) + Ethernet()), kEthernet + "\n");
    EXPECT_EQ(Walk(Two(3) + Buffer{0} + Ethernet()), "");
    for (const int iLength : {0, 0xFFFF})
        EXPECT_EQ(Walk(Message(kOther, Buffer(16), iLength) + Ethernet()), "") << iLength;
}

TEST(Adapters, AddressesAreLinkedBehindTheLastOfEitherFamily) {
    const struct {
        const char *szFamilies; // of the addresses 1, 2, 3 ... in their order
        const char *szLists;
    } cases[] = {
        {"4466", " 1.0.0.0/ 2.0.0.0/ | 300::/ 400::/"},
        {"6644", " 3.0.0.0/ 4.0.0.0/ | 100::/ 200::/"},
        {"646464", " 2.0.0.0/ 300::/ 4.0.0.0/ 500::/ 6.0.0.0/ | 100::/"},
        {"464", " 1.0.0.0/ | 200::/ 3.0.0.0/"},
    };
    for (const auto &sequence : cases) {
        Buffer report = Ethernet() + Loopback();
        uint8_t nNumber = 0;
        for (const char *pFamily = sequence.szFamilies; *pFamily != '\0'; ++pFamily) {
            ++nNumber;
            report = report + Address(0x101, IpMask(0, {}), Ip({127, 0, 0, 1})); // of another adapter
            report = report +
                     (*pFamily == '4' ? Address(4, IpMask(4, {}), Ip({nNumber})) : Address6(4, {nNumber, 0}));
        }
        const std::string text = std::regex_replace(Walk(report), std::regex("/[0-9a-f.:]+"), "/");
        EXPECT_EQ(text.substr(0, text.find('\n')), kEthernet + sequence.szLists);
    }
}

// What a call for a list answers with memory for no block, one, two ... until there is enough: e for an error, else how many
// are in the list.
template <class Node, class Ask>
std::string AnswersWithMoreAndMoreMemory(Ask ask, int32_t (*pfnFree)(Node *pList)) {
    auto *const pUntouched = reinterpret_cast<Node *>(8);
    std::string answers;
    answers.reserve(100);
    const long iBlocks = failing_memory::Alive();
    while (answers.find_first_of("123456789") == std::string::npos && answers.size() < 99) {
        Node *pList = pUntouched;
        char cAnswer = 'e';
        {
            const failing_memory::Limit memory(static_cast<int>(answers.size()));
            cAnswer = ask(&pList) == VYX_OK ? '0' : 'e';
        }
        EXPECT_EQ(cAnswer == 'e', pList == pUntouched) << answers;
        for (const Node *p = cAnswer == 'e' ? nullptr : pList; p != nullptr; p = p->pNext)
            ++cAnswer;
        if (cAnswer != 'e')
            (void)pfnFree(pList);
        answers += cAnswer;
        EXPECT_EQ(failing_memory::Alive(), iBlocks) << answers;
    }
    return answers;
}

TEST(Adapters, ShortOfMemory) {
    Report(Ethernet() + Loopback() + Address(4, IpMask(4, {}), Ip({1})) + Address6(4, {2}));
    const std::string answers = AnswersWithMoreAndMoreMemory(VYX_GetAdapterInfo, VYX_FreeAdapterInfo);
    EXPECT_TRUE(std::regex_match(answers, std::regex("00eee+2"))) << answers << ": none if one cannot be";
    const long iBlocks = failing_memory::Alive();
    auto *const pAdapter = new VYX_ADAPTER_INFO();
    pAdapter->pReservedList1 = new VYX_IPADDR_STRING();
    pAdapter->pReservedList2 = new VYX_IPADDR_STRING();
    EXPECT_EQ(VYX_FreeAdapterInfo(pAdapter), 0);
    EXPECT_EQ(failing_memory::Alive(), iBlocks);
}

TEST(Resolve, ShortOfMemory) {
    VYX_ADDRESS_INFO_T hints = {};
    const auto answers = [&hints] {
        return AnswersWithMoreAndMoreMemory<VYX_ADDRESS_INFO_T>(
            [&](auto **ppList) { return VYX_GetAddressInfo("127.0.0.1", "80", &hints, ppList); },
            VYX_FreeAddressInfo);
    };
    hints.iFlags = AI_NUMERICHOST | AI_CANONNAME;
    EXPECT_TRUE(std::regex_match(answers(), std::regex("eee+[2-9]"))) << "a name and several nodes";
    hints.iSockType = SOCK_STREAM;
    EXPECT_EQ(answers(), "ee1");
}

TEST(MacAddress, ComparesTheRawBytes) {
    const std::string whole = "\xfd\xf1\x34\x56\x78\x9a\xbc\xde\xf1\x23\x45\x67\x89\xab\xcd\xef";
    const Buffer bytes16(whole.begin(), whole.end());
    const Buffer report = Ethernet() + Interface(1, kUpAndRunning, "lo", Buffer(6)) +
                          Interface(7, kUpAndRunning, "long", Buffer(9, 8)) + Address6(4, bytes16) +
                          Address6(4, {1}) + Address6(1, {0, 1}) + Address6(1, {0xFD, 0x80}) +
                          Address(7, IpMask(4, {}), Ip({10, 1, 2, 3}));
    // The result, the length, which does not limit what is written, and the bytes.
    const auto ask = [](const std::string &text) {
        uint8_t bytes[8];
        std::memset(bytes, 0x55, sizeof bytes);
        uint32_t nLength = 1;
        const int32_t iResult = VYX_GetMacAddr(text.c_str(), bytes, &nLength);
        return std::to_string(iResult) + " " + std::to_string(nLength) + " " +
               adapter_text::Hex(bytes, sizeof bytes);
    };
    const std::string nothing = "-1 6 55:55:55:55:55:55:55:55";
    Report(report);
    EXPECT_EQ(ask(whole), "0 6 02:01:02:03:04:05:55:55");
    EXPECT_EQ(ask(whole.substr(0, 15)), nothing);
    EXPECT_EQ(ask(whole + "\xff"), nothing) << "the mask's bytes are behind";
    EXPECT_EQ(ask(""), "0 6 00:00:00:00:00:00:55:55") << "one begins with a zero";
    EXPECT_EQ(ask("\xfd\x80"), nothing) << "which is not the first of its adapter";
    EXPECT_EQ(ask("10.1.2.3"), nothing) << "of an adapter without IPv6";
    Report(report + Address6(7, {7}));
    EXPECT_EQ(ask("\7"), "0 8 08:08:08:08:08:08:08:08");
    s_iResult = VYX_ERROR;
    EXPECT_EQ(ask(whole), nothing);
    s_iResult = VYX_OK;
}

} // namespace
