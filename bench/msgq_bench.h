// The work that every message queue gets, so that figures of one run can be compared.
//
// A queue is a class with
//   void Send(const Message &message)   copies it in
//   void Receive(Message &message)      waits for the first one and copies it out
//   bool ReceiveWithin(Message &message, uint32_t nMillis)   the same within a time; where the peer has it
#ifndef VYX_BENCH_MSGQ_BENCH_H
#define VYX_BENCH_MSGQ_BENCH_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/bench.h"

struct Message {
    int32_t iPriority;
    std::array<char, 64> data;
};

// The time that a message takes through a queue, of batches that as many senders send as fast as they can to as many
// receivers.
template <class Queue, uint32_t Threads>
void MessagesThrough(benchmark::State &state) {
    constexpr uint32_t kEach = Threads == 1 ? 20000 : 4000;
    Queue queue;
    std::vector<double> samples;
    std::atomic<uint32_t> nWrong{0};
    const auto Send = [&queue] {
        Message message = {1, {}};
        for (uint32_t n = 0; n < kEach; ++n) {
            message.data[0] = static_cast<char>(n);
            queue.Send(message);
        }
    };
    const auto Receive = [&queue, &nWrong] {
        Message message = {};
        for (uint32_t n = 0; n < kEach; ++n) {
            queue.Receive(message);
            nWrong += static_cast<uint32_t>(Threads == 1 && message.data[0] != static_cast<char>(n));
        }
    };
    for (auto _ : state) {
        for (int nBatch = 0; nBatch < 9; ++nBatch) {
            std::vector<std::thread> threads;
            const auto start = bench::Clock::now();
            for (uint32_t n = 0; n < Threads; ++n) {
                threads.emplace_back(Send);
                threads.emplace_back(Receive);
            }
            for (std::thread &thread : threads)
                thread.join();
            samples.push_back(bench::MicrosecondsSince(start) / (kEach * Threads));
        }
        if (nWrong != 0)
            state.SkipWithError("messages came out of order");
    }
    bench::TimeOfMedian(state, samples);
}

// From a send until a receiver with a limit, who had been asleep for a while, has the message.
template <class Queue>
void WakeWithLimit(benchmark::State &state) {
    constexpr uint32_t kRounds = 200;
    Queue queue;
    bench::Clock::time_point start;
    std::vector<double> samples;
    std::atomic<uint32_t> nReceived{0};
    for (auto _ : state) {
        std::thread receiver([&] {
            Message message = {};
            for (uint32_t n = 0; n < kRounds; ++n) {
                if (!queue.ReceiveWithin(message, 10000))
                    std::abort();
                samples.push_back(bench::MicrosecondsSince(start));
                ++nReceived;
            }
        });
        for (uint32_t n = 0; n < kRounds; ++n) {
            while (nReceived != n)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::microseconds(500)); // by now the receiver sleeps
            start = bench::Clock::now();
            queue.Send({1, {}});
        }
        receiver.join();
        nReceived = 0;
    }
    bench::TimeOfMedian(state, samples);
}

template <class Queue>
int RegisterMessagesThrough(const char *szSide, double fBound) {
    bench::Compare("message_through", {{szSide, MessagesThrough<Queue, 1>, fBound}}, bench::ByHand);
    bench::Compare("message_through_16_to_16", {{szSide, MessagesThrough<Queue, 16>, fBound}}, bench::ByHand);
    return 0;
}

template <class Queue>
int RegisterWakeWithLimit(const char *szSide, double fBound) {
    bench::Compare("message_wakes_with_limit", {{szSide, WakeWithLimit<Queue>, fBound}}, bench::ByHand);
    return 0;
}

#endif
