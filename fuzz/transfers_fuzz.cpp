// VYX_Sendn, VYX_Recvn, VYX_RecvWithTimeOut and VYX_PollEx over a network and a clock that the input plays. What has to hold: the
// bytes and their count are exact; a call gives up only when its time is out, or after a failure; and it returns.
#include <memory>

#include "played_network.h"

namespace {

using namespace fuzz;

// What is left of the limit is exact, also after the clock was set back.
void Poll(Network *pNet) {
    struct pollfd fd = {3, POLLIN, 0};
    uint32_t nLeft = pNet->nLimit;
    REQUIRE(VYX_PollEx(&fd, 1, &nLeft) == pNet->iPolled);
    const auto iTook = static_cast<int64_t>(pNet->nNow - pNet->nStart);
    const int64_t iLeft = pNet->nLimit == kHuge ? 0 : std::max<int64_t>(0, pNet->nLimit - iTook);
    REQUIRE(pNet->nLimit == VYX_INFINITE ? nLeft == VYX_INFINITE : nLeft == iLeft);
    REQUIRE(!pNet->bInterrupted || nLeft == 0);
}

void Transfer(Network *pNet) {
    const auto iLen = 1 + static_cast<int32_t>(pNet->pInput->Byte());
    const bool bSending = pNet->eKind == Kind::Send;
    std::string sBytes(static_cast<size_t>(iLen), '\xEE');
    for (size_t i = 0; i < sBytes.size() && bSending; ++i)
        sBytes[i] = static_cast<char>(i * 7);
    const auto pBytes = std::make_unique<char[]>(sBytes.size()); // a sanitizer sees its end
    std::copy(sBytes.begin(), sBytes.end(), pBytes.get());
    const auto fnReceive = pNet->eKind == Kind::Receive ? VYX_Recvn : VYX_RecvWithTimeOut;
    const int32_t iDone = bSending ? VYX_Sendn(3, pBytes.get(), iLen, pNet->nLimit)
                                   : fnReceive(3, pBytes.get(), iLen, pNet->nLimit);
    const uint64_t nTook = pNet->nNow - pNet->nStart;
    const bool bOut = pNet->nLimit == kHuge || (pNet->nLimit != VYX_INFINITE && nTook >= pNet->nLimit);
    REQUIRE(!bOut || nTook <= pNet->nLimit + kMostLate + 1U);
    for (int i = 0; i < pNet->iReceived; ++i)
        sBytes[static_cast<size_t>(i)] = static_cast<char>(i);
    REQUIRE(std::equal(sBytes.begin(), sBytes.end(), pBytes.get()));
    REQUIRE(bOut || pNet->bFailed || (pNet->eKind == Kind::ReceiveSome ? iDone > 0 : iDone == iLen));
    if (bSending)
        REQUIRE(pNet->sSent == sBytes.substr(0, static_cast<size_t>(iDone)));
    else if (pNet->eKind == Kind::Receive)
        REQUIRE(iDone == (pNet->bFailed ? -1 : pNet->iReceived) ||
                (iDone == -1 && bOut && pNet->bInterrupted));
    else
        REQUIRE(iDone == (pNet->iReceived > 0 ? pNet->iReceived : -1) &&
                pNet->iReceived == std::max(pNet->iLast, 0));
}

void Call(Input *pInput, Network *pNet) {
    const Kind eBefore = pNet->eBefore;
    const auto eKind = static_cast<Kind>(pInput->Pick(4));
    const unsigned nLimit = pInput->Byte();
    const bool bAll = eKind == Kind::Send || eKind == Kind::Receive;
    *pNet = {pInput, pNet->nNow, bAll ? eKind : eBefore, eKind};
    pNet->nLimit = nLimit == 255 ? VYX_INFINITE : nLimit == 254 ? kHuge : nLimit;
    pNet->nStart = pNet->nNow;
    if (eKind == Kind::Poll)
        Poll(pNet);
    else
        Transfer(pNet);
    // An answer takes a while; otherwise what is to be sent or received all is tried first.
    if (eKind == Kind::Send || (eKind == Kind::Receive && eBefore == Kind::Receive))
        REQUIRE(pNet->cFirst == 't');
    else if (eKind != Kind::Receive || (eBefore == Kind::Send && pNet->nLimit != VYX_INFINITE))
        REQUIRE(pNet->cFirst == 'w');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    Input input(pData, nSize);
    Network net{&input,
                (uint64_t{400} << 32) - (input.Pick(2) == 0 ? input.Byte() : 0)}; // the tick wraps soon
    s_pNetwork = &net;
    for (int i = 0; i < 8 && !input.AtEnd(); ++i) // the socket remembers what was asked last
        Call(&input, &net);
    s_pNetwork = nullptr;
    return 0;
}
