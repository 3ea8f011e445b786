// Adapters: how the list is linked, and the lists of real systems, each a network namespace made for the test.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <net/if.h>
#include <net/if_arp.h>
#include <sched.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/net.h>

#include "base/descriptor.h"
#include "net/adapter_inter.h"
#include "net/adapter_text.h"
#include "net/failing_memory.h"
#include "net/net_support.h"
#include "support/support.h"
#include "support/temp_dir.h"

namespace {

using vyx_inter::AdapterList;
using vyx_inter::AdapterListHolder;
using vyx_inter::AddressFact;
using vyx_inter::InterfaceFact;

VYX_ADAPTER_INFO *const kUntouched = reinterpret_cast<VYX_ADAPTER_INFO *>(8);

InterfaceFact Interface(uint32_t nIndex) {
    static const uint8_t bytes[] = {'e', 't', 'h', 2, 3, 4, 5, 6, 7};
    return {nIndex, true, bytes, 3, bytes + 3, 6, 1};
}

// The number of an address is in its last byte: 10.0.0.N, or fd followed by N.
AddressFact Address(uint32_t nIndex, bool bIp6, uint8_t nNumber) {
    AddressFact fact = {};
    fact.nIndex = nIndex;
    fact.bIp6 = bIp6;
    fact.byAddr[0] = bIp6 ? 0xFD : 10;
    fact.byAddr[bIp6 ? 15 : 3] = nNumber;
    fact.byMask[0] = 255;
    return fact;
}

// The addresses behind the hardware address, as "4:N" and "6:N".
std::string Lists(const VYX_ADAPTER_INFO &adapter) {
    constexpr const char *kShorter[][2] = {
        {"10.0.0.", "4:"}, {"/255.0.0.0", ""}, {"fd00::", "6:"}, {"/ff00::", ""}};
    std::string text = adapter_text::Describe(adapter);
    for (const auto &[szLong, szShort] : kShorter)
        for (size_t n; (n = text.find(szLong)) != std::string::npos;)
            text.replace(n, std::strlen(szLong), szShort);
    return text.substr(text.find("07") + 2);
}

TEST(AdapterList, LinksBehindTheLastOfEitherFamily) {
    const struct {
        const char *szFamilies; // of the addresses 1, 2, 3 ... in their order
        const char *szLists;
    } cases[] = {
        {"", ""},
        {"4", " 4:1"},
        {"6", " | 6:1"},
        {"4466", " 4:1 4:2 | 6:3 6:4"},
        {"6644", " 4:3 4:4 | 6:1 6:2"},
        {"464", " 4:1 | 6:2 4:3"},
        {"646", " 4:2 6:3 | 6:1"},
        {"6464646", " 4:2 6:3 4:4 6:5 4:6 6:7 | 6:1"},
    };
    for (const auto &sequence : cases) {
        SCOPED_TRACE(sequence.szFamilies);
        AdapterList list;
        list.AddInterface(Interface(7));
        list.AddInterface(Interface(2));
        // Every address of the second adapter comes between those of the first.
        for (uint8_t i = 0; sequence.szFamilies[i] != '\0'; ++i) {
            list.AddAddress(Address(2, i % 2 == 0, 99));
            list.AddAddress(Address(7, sequence.szFamilies[i] == '6', static_cast<uint8_t>(i + 1)));
            list.AddAddress(Address(5, true, 98));
        }
        VYX_ADAPTER_INFO *pList = nullptr;
        ASSERT_EQ(list.Finish(&pList), VYX_OK);
        const AdapterListHolder holder(pList);
        ASSERT_NE(pList, nullptr);
        EXPECT_EQ(pList->nIndex, 7U);
        EXPECT_EQ(Lists(*pList), sequence.szLists);
        EXPECT_EQ(pList->pReservedList1, nullptr);
        EXPECT_EQ(pList->pReservedList2, nullptr);
    }
}

TEST(AdapterList, FreesTheReservedListsToo) {
    EXPECT_EQ(VYX_FreeAdapterInfo(nullptr), 0);
    const long iBefore = failing_memory::Alive();
    auto *const pAdapter = new VYX_ADAPTER_INFO();
    pAdapter->pReservedList1 = new VYX_IPADDR_STRING();
    pAdapter->pReservedList2 = new VYX_IPADDR_STRING();
    pAdapter->pReservedList2->pNext = new VYX_IPADDR_STRING();
    EXPECT_EQ(VYX_FreeAdapterInfo(pAdapter), 0);
    EXPECT_EQ(failing_memory::Alive(), iBefore);
}

// Memory is short from one step of building on: interfaces, addresses, linking.
TEST(AdapterList, ShortOfMemory) {
    const struct {
        int32_t iResult;
        VYX_ADAPTER_INFO *pList;
    } cases[] = {{VYX_OK, nullptr}, {VYX_ERROR, kUntouched}, {VYX_ERROR, kUntouched}};
    const long iBefore = failing_memory::Alive();
    for (int iFailing = 0; iFailing < 3; ++iFailing) {
        VYX_ADAPTER_INFO *pList = kUntouched;
        int32_t iResult = 1;
        {
            AdapterList list;
            const std::function<void()> steps[] = {
                [&list] { list.AddInterface(Interface(2)); },
                [&list] { list.AddAddress(Address(1, false, 1)); },
                [&] { iResult = list.Finish(&pList); },
            };
            list.AddInterface(Interface(1));
            for (int iStep = 0; iStep < 3; ++iStep) {
                const failing_memory::Limit limit(iStep == iFailing ? 0 : -1);
                steps[iStep]();
            }
        }
        EXPECT_EQ(iResult, cases[iFailing].iResult) << iFailing;
        EXPECT_EQ(pList, cases[iFailing].pList) << iFailing;
        EXPECT_EQ(failing_memory::Alive(), iBefore) << iFailing;
    }
}

TEST(Adapters, FailuresLeaveNothingBehind) {
    EXPECT_EQ(VYX_GetAdapterInfo(nullptr), VYX_ERROR);
    const long iDescriptors = support::OpenDescriptors();
    const long iBlocks = failing_memory::Alive();
    VYX_ADAPTER_INFO *pList = kUntouched;
    {
        const nettest::DescriptorLimit none(0);
        EXPECT_EQ(VYX_GetAdapterInfo(&pList), VYX_ERROR);
        EXPECT_EQ(errno, EMFILE);
    }
    EXPECT_EQ(pList, kUntouched);
    bool bReached = true;
    int iFailures = 0;
    for (int iLeft = 0; bReached; ++iLeft) {
        pList = kUntouched;
        int32_t iShort = 0;
        {
            const failing_memory::Limit memory(iLeft);
            iShort = VYX_GetAdapterInfo(&pList);
            bReached = memory.Reached();
        }
        EXPECT_TRUE(iShort == VYX_OK ? pList != kUntouched : pList == kUntouched) << iLeft;
        iFailures += iShort == VYX_OK ? 0 : 1;
        if (iShort == VYX_OK)
            (void)VYX_FreeAdapterInfo(pList);
        EXPECT_EQ(failing_memory::Alive(), iBlocks) << iLeft;
    }
    EXPECT_GT(iFailures, 0);
    EXPECT_EQ(support::OpenDescriptors(), iDescriptors);
}

// ---- Namespaces

constexpr int kSkipped = 77; // exit code of a child that may not make a namespace

// Runs commands of ip(8), one a line. True if all of them succeeded.
bool Ip(const std::string &commands) {
    FILE *const pIp = popen("ip -batch -", "we");
    if (pIp == nullptr)
        return false;
    (void)std::fputs(commands.c_str(), pIp);
    return pclose(pIp) == 0;
}

// Moves this process into an empty network of its own; as root in a user namespace where that takes one.
bool EnterNamespace() {
    if (unshare(CLONE_NEWNET) == 0)
        return true;
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    support::WriteFile("/proc/self/setgroups", "deny");
    support::WriteFile("/proc/self/uid_map", "0 " + user + " 1");
    support::WriteFile("/proc/self/gid_map", "0 " + group + " 1");
    return true;
}

[[noreturn]] void RunChild(const std::string &commands, const std::function<void()> &check) {
    const char *const szTry =
        "ip link add x0 type veth peer name y0 && ip link del x0 && test -e /proc/net/if_inet6";
    if (!EnterNamespace() || std::system(szTry) != 0)
        _exit(kSkipped);
    EXPECT_TRUE(Ip(commands)) << commands;
    if (!testing::Test::HasFailure())
        check();
    (void)std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

class Namespace : public testing::Test {
  protected:
    // Sets up a network and runs the check in it, both in a child.
    static void Run(const std::string &commands, const std::function<void()> &check) {
        (void)std::fflush(nullptr);
        const pid_t iChild = fork();
        if (iChild == 0)
            RunChild(commands, check);
        int iStatus = 0;
        ASSERT_EQ(waitpid(iChild, &iStatus, 0), iChild);
        ASSERT_TRUE(WIFEXITED(iStatus));
        if (WEXITSTATUS(iStatus) == kSkipped)
            GTEST_SKIP() << "no network namespaces with veth and IPv6 here, or no ip(8)";
        EXPECT_EQ(WEXITSTATUS(iStatus), 0) << "see the failures above, from the child";
    }
};

// One line for each adapter, sorted; empty if the list cannot be read.
std::vector<std::string> Adapters() {
    VYX_ADAPTER_INFO *pList = nullptr;
    std::vector<std::string> lines;
    if (VYX_GetAdapterInfo(&pList) != VYX_OK)
        return lines;
    const AdapterListHolder holder(pList);
    for (const auto *p = pList; p != nullptr; p = p->pNext) {
        EXPECT_EQ(p->nIndex, if_nametoindex(p->szName)) << p->szName;
        lines.push_back(adapter_text::Describe(*p));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// The kernel tells of a carrier a little after a link came up.
void ExpectAdapters(const std::vector<std::string> &expected) {
    (void)support::WaitUntil([&] { return Adapters() == expected; });
    EXPECT_EQ(Adapters(), expected);
}

const std::string kTwoPairs =
    "link add a0 address 02:11:22:33:44:55 type veth peer name b0 address 02:aa:bb:cc:dd:ee\n"
    "link add c0 type veth peer name d0\n"
    "link set a0 addrgenmode none\nlink set b0 addrgenmode none\n"
    "link set c0 addrgenmode none\n"
    "link set lo up\nlink set a0 up\nlink set b0 up\nlink set c0 up\n"
    "addr add 10.7.7.7/24 dev c0\naddr add 10.8.8.8/24 dev d0\n";

TEST_F(Namespace, ListsWhatIsUpAndRunning) {
    // c0 is up without a carrier, d0 is down; a label does not hide whose address it is; of two ends the own counts.
    Run(kTwoPairs + "addr add 10.1.2.3/24 dev a0\naddr add 10.1.2.4/24 dev a0\n"
                    "addr add 172.16.0.1/12 dev a0 label a0:alias\naddr add 192.0.2.1/32 dev a0\n"
                    "addr add 2001:db8::5/61 dev a0 nodad\n"
                    "addr add 10.9.0.1 peer 10.9.0.2/31 dev b0\n",
        [] {
            const std::string head = " type " + std::to_string(ARPHRD_ETHER) + " mac ";
            ExpectAdapters({"a0" + head +
                                "02:11:22:33:44:55 10.1.2.3/255.255.255.0 172.16.0.1/255.240.0.0 "
                                "192.0.2.1/255.255.255.255 10.1.2.4/255.255.255.0 "
                                "| 2001:db8::5/ffff:ffff:ffff:fff8::",
                            "b0" + head + "02:aa:bb:cc:dd:ee 10.9.0.1/255.255.255.254",
                            "lo type " + std::to_string(ARPHRD_LOOPBACK) +
                                " mac 00:00:00:00:00:00 127.0.0.1/255.0.0.0 "
                                "| ::1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"});
            EXPECT_TRUE(Ip("link set a0 down\nlink set lo down\n")); // takes b0's carrier, too
            ExpectAdapters({});
            VYX_ADAPTER_INFO *pList = kUntouched;
            EXPECT_EQ(VYX_GetAdapterInfo(&pList), VYX_OK);
            EXPECT_EQ(pList, nullptr) << "no adapter";
        });
}

TEST(Adapters, FromManyThreadsAtOnce) {
    const std::vector<std::string> expected = Adapters();
    const int iEqual = nettest::CountInThreads([&expected] { return Adapters() == expected; });
    if (Adapters() != expected)
        GTEST_SKIP() << "this system's adapters changed meanwhile";
    EXPECT_EQ(iEqual, 200);
}

void *CancelledInTheCall(void * /*pParam*/) {
    VYX_ADAPTER_INFO *pList = nullptr;
    (void)pthread_cancel(pthread_self());
    (void)VYX_GetAdapterInfo(&pList);
    (void)VYX_FreeAdapterInfo(pList); // where nothing in the call ends a cancelled thread
    pthread_testcancel();
    return nullptr;
}

void *CancelledBeforeTheClose(void * /*pParam*/) {
    {
        const vyx_inter::Descriptor descriptor(socket(AF_INET, SOCK_DGRAM, 0));
        (void)pthread_cancel(pthread_self());
    }
    pthread_testcancel();
    return nullptr;
}

TEST(Adapters, CancelledThreadsEndAndLeaveNoDescriptor) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer takes the frames that a cancellation leaves for live ones";
#endif
    const long iBefore = support::OpenDescriptors();
    for (const auto fnStart : {CancelledInTheCall, CancelledBeforeTheClose}) {
        pthread_t hThread;
        void *pResult = nullptr;
        ASSERT_EQ(pthread_create(&hThread, nullptr, fnStart, nullptr), 0);
        ASSERT_EQ(pthread_join(hThread, &pResult), 0);
        EXPECT_EQ(pResult, PTHREAD_CANCELED);
        EXPECT_EQ(support::OpenDescriptors(), iBefore);
    }
}

// ---- Hardware addresses

struct Mac {
    int32_t iResult;
    uint32_t nLength;
    std::string bytes; // all ten of the buffer
};

Mac GetMac(const std::string &text, uint32_t nLength = 1) {
    uint8_t bytes[10];
    std::memset(bytes, 0x55, sizeof bytes);
    const int32_t iResult = VYX_GetMacAddr(text.c_str(), bytes, &nLength);
    return {iResult, nLength, adapter_text::Hex(bytes, sizeof bytes)};
}

TEST_F(Namespace, MacAddressComparesTheRawBytes) {
    Run(kTwoPairs + "addr add 10.1.2.3/24 dev b0\n"
                    "addr add fdf1:3456:789a:bcde:f123:4567:89ab:cdef/128 dev a0 nodad\n",
        [] {
            const std::string whole = "\xfd\xf1\x34\x56\x78\x9a\xbc\xde\xf1\x23\x45\x67\x89\xab\xcd\xef";
            const std::string ethernet = "02:11:22:33:44:55:55:55:55:55";
            const std::string nothing = "55:55:55:55:55:55:55:55:55:55";
            (void)support::WaitUntil([] { return Adapters().size() == 3; });
            const struct {
                const char *szName;
                std::string text;
                std::string bytes;
            } cases[] = {
                {"all bytes", whole, ethernet},
                {"one fewer", whole.substr(0, 15), nothing},
                {"the mask's bytes behind", whole + std::string(16, '\xff'), nothing},
                {"printed", "fdf1:3456:789a:bcde:f123:4567:89ab:cdef", nothing},
                {"::1 begins with a zero", "", "00:00:00:00:00:00:55:55:55:55"},
                {"an IPv4 address of an adapter without IPv6", "10.1.2.3", nothing},
            };
            for (const auto &lookUp : cases) {
                const Mac mac = GetMac(lookUp.text);
                EXPECT_EQ(mac.iResult, lookUp.bytes == nothing ? VYX_ERROR : VYX_OK) << lookUp.szName;
                EXPECT_EQ(mac.nLength, 6U) << lookUp.szName;
                EXPECT_EQ(mac.bytes, lookUp.bytes) << lookUp.szName;
            }
            EXPECT_TRUE(Ip("addr flush dev a0\naddr add fd80::1/64 dev a0 nodad\n"));
            EXPECT_EQ(GetMac("\xfd\x80", 500).bytes, ethernet) << "up to the first zero byte";
        });
}

TEST(MacAddress, RefusesNullAndNoRoomWithALine) {
    uint8_t bytes[8] = {};
    uint32_t nNone = 0;
    uint32_t nNine = 9;
    testing::internal::CaptureStderr();
    EXPECT_EQ(VYX_GetMacAddr("x", bytes, &nNone), VYX_ERROR);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "quelby VYX_GetMacAddr parameter error, return VYX_ERROR\n\n");
    EXPECT_EQ(VYX_GetMacAddr(nullptr, bytes, &nNine), VYX_ERROR);
    EXPECT_EQ(VYX_GetMacAddr("x", nullptr, &nNine), VYX_ERROR);
    EXPECT_EQ(VYX_GetMacAddr("x", bytes, nullptr), VYX_ERROR);
    EXPECT_EQ(nNine, 9U);
}

} // namespace
