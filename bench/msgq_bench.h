// The work that every message queue gets, so that figures of one run can be compared.
//
// A queue is a class with
//   void Send(const Message &message)   copies it in
//   void Receive(Message &message)      waits for the first one and copies it out
#ifndef VYX_BENCH_MSGQ_BENCH_H
#define VYX_BENCH_MSGQ_BENCH_H

#include <array>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/bench.h"

struct Message {
    int32_t iPriority;
    std::array<char, 64> data;
};

// The time that a message takes from one thread to another, of batches that the sender sends as fast as it can.
template <class Queue>
void MessagesThrough(benchmark::State &state) {
    constexpr uint32_t kBatch = 20000;
    Queue queue;
    std::vector<double> samples;
    for (auto _ : state) {
        for (int nBatch = 0; nBatch < 9; ++nBatch) {
            const auto start = bench::Clock::now();
            std::thread sender([&queue] {
                Message message = {1, {}};
                for (uint32_t n = 0; n < kBatch; ++n) {
                    message.data[0] = static_cast<char>(n);
                    queue.Send(message);
                }
            });
            Message message = {};
            uint32_t nWrong = 0;
            for (uint32_t n = 0; n < kBatch; ++n) {
                queue.Receive(message);
                nWrong += static_cast<uint32_t>(message.data[0] != static_cast<char>(n));
            }
            sender.join();
            samples.push_back(bench::MicrosecondsSince(start) / kBatch);
            if (nWrong != 0)
                state.SkipWithError("messages came out of order");
        }
    }
    bench::TimeOfMedian(state, samples);
}

template <class Queue>
int RegisterMessagesThrough(const char *szSide, double fBound) {
    bench::Compare("message_through", {{szSide, MessagesThrough<Queue>, fBound}}, bench::ByHand);
    return 0;
}

#endif
