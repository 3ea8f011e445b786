// Message queues beside what else keeps messages by priority: between two threads, by the cost of a send to a
// queue that holds much, and by their memory.
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <memory>
#include <mqueue.h>
#include <mutex>
#include <queue>
#include <random>
#include <unistd.h>

#include <vyx/msg.h>

#include "msgq_bench.h"

namespace {

class VyxQueue {
  public:
    VyxQueue() { (void)VYX_MsgQCreateEx(&m_hQueue); }
    ~VyxQueue() { (void)VYX_MsgQDestroyEx(m_hQueue); }
    VyxQueue(const VyxQueue &) = delete;
    VyxQueue &operator=(const VyxQueue &) = delete;

    void Send(const Message &message) {
        static thread_local VYX_MSG_BLOCK_T block;
        block.iPriority = message.iPriority;
        block.iDataLen = static_cast<int32_t>(message.data.size());
        std::memcpy(block.szData, message.data.data(), message.data.size());
        if (VYX_MsgQSendEx(m_hQueue, &block) != VYX_OK)
            std::abort();
    }
    void Receive(Message &message) {
        if (!ReceiveWithin(message, VYX_INFINITE))
            std::abort();
    }
    bool ReceiveWithin(Message &message, uint32_t nMillis) {
        static thread_local VYX_MSG_BLOCK_T block;
        block.iDataLen = VYX_MSG_DATA_SIZE;
        if (VYX_MsgQReceiveEx(m_hQueue, &block, static_cast<int32_t>(nMillis)) != VYX_OK)
            return false;
        message.iPriority = block.iPriority;
        std::memcpy(message.data.data(), block.szData, message.data.size());
        return true;
    }

  private:
    VYX_HANDLE_MSGQ m_hQueue = nullptr;
};

// The system's own queue, with as much room as it allows without privileges.
class SystemQueue {
  public:
    SystemQueue() {
        const std::string name = "/vyx_bench_" + std::to_string(getpid());
        mq_attr attr = {};
        attr.mq_maxmsg = 10;
        attr.mq_msgsize = sizeof(Message::data);
        m_hQueue = mq_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600, &attr);
        (void)mq_unlink(name.c_str());
    }
    ~SystemQueue() { (void)mq_close(m_hQueue); }
    SystemQueue(const SystemQueue &) = delete;
    SystemQueue &operator=(const SystemQueue &) = delete;

    void Send(const Message &message) {
        if (mq_send(m_hQueue, message.data.data(), message.data.size(),
                    static_cast<unsigned int>(message.iPriority)) != 0)
            std::abort();
    }
    void Receive(Message &message) {
        unsigned int nPriority = 0;
        if (mq_receive(m_hQueue, message.data.data(), message.data.size(), &nPriority) < 0)
            std::abort();
        message.iPriority = static_cast<int32_t>(nPriority);
    }
    bool ReceiveWithin(Message &message, uint32_t nMillis) {
        struct timespec due = {};
        (void)clock_gettime(CLOCK_REALTIME, &due);
        due.tv_sec += nMillis / 1000;
        return mq_timedreceive(m_hQueue, message.data.data(), message.data.size(), nullptr, &due) >= 0;
    }

  private:
    mqd_t m_hQueue;
};

// What one writes by hand: a heap, with a number to keep equal ones in order.
class HeapQueue {
  public:
    void Send(const Message &message) {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_heap.push({message, m_nNext++});
        }
        m_cond.notify_one();
    }
    void Receive(Message &message) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cond.wait(lock, [this] { return !m_heap.empty(); });
        message = m_heap.top().message;
        m_heap.pop();
    }
    bool ReceiveWithin(Message &message, uint32_t nMillis) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_cond.wait_for(lock, std::chrono::milliseconds(nMillis), [this] { return !m_heap.empty(); }))
            return false;
        message = m_heap.top().message;
        m_heap.pop();
        return true;
    }

  private:
    struct Entry {
        Message message;
        uint64_t nNumber;
        bool operator<(const Entry &other) const {
            return message.iPriority != other.message.iPriority ? message.iPriority < other.message.iPriority
                                                                : nNumber > other.nNumber;
        }
    };
    std::mutex m_mutex;
    std::condition_variable m_cond;
    std::priority_queue<Entry> m_heap;
    uint64_t m_nNext = 0;
};

// The time of a send, of as many as are timed together, to a queue that stays about as full as it is.
//   nQueued      messages that are there
//   nPriorities  different ones among them, evenly spread; the sends go on in the same way
double NanosecondsPerSend(uint32_t nQueued, uint32_t nPriorities) {
    constexpr uint32_t kSends = 1000;
    VyxQueue queue;
    Message message = {};
    uint32_t nNext = 0;
    const auto Send = [&] {
        message.iPriority = static_cast<int32_t>(nNext++ * 7919 % nPriorities);
        queue.Send(message);
    };
    std::vector<double> samples;
    for (uint32_t n = 0; n < nQueued; ++n)
        Send();
    for (int nRound = 0; nRound < 40; ++nRound) {
        const auto start = bench::Clock::now();
        for (uint32_t n = 0; n < kSends; ++n)
            Send();
        samples.push_back(bench::MicrosecondsSince(start) * 1000 / kSends);
        for (uint32_t n = 0; n < kSends; ++n)
            queue.Receive(message);
    }
    return bench::Median(samples);
}

// How many times what a send to a queue with one message costs. The first 1000 sends meet an emptier queue than
// the last, on both sides alike.
template <uint32_t Queued, uint32_t Priorities>
void SendCost(benchmark::State &state) {
    for (auto _ : state) {
        const double fOne = NanosecondsPerSend(1, 1);
        const double fFull = NanosecondsPerSend(Queued, Priorities);
        bench::Observed(state, fFull / fOne, "times", 1.5);
    }
}

// A send and a receive at a queue that holds as many messages as the size says. The sends are spread over as many
// priorities; so the receives take what has just come, or little before.
template <class Queue, uint32_t Priorities>
void PairCost(benchmark::State &state) {
    constexpr uint32_t kPairs = 1000;
    for (auto _ : state) {
        Queue queue;
        Message message = {};
        std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same run each time
        const auto Send = [&] {
            message.iPriority = static_cast<int32_t>(random() % Priorities);
            queue.Send(message);
        };
        for (int64_t n = 0; n < state.range(0); ++n)
            Send();
        queue.Receive(message); // has all of them put in order
        std::vector<double> samples;
        for (int nRound = 0; nRound < 20; ++nRound) {
            const auto start = bench::Clock::now();
            for (uint32_t n = 0; n < kPairs; ++n) {
                Send();
                queue.Receive(message);
            }
            samples.push_back(bench::MicrosecondsSince(start) * 1000 / kPairs);
        }
        bench::Observed(state, bench::Median(samples), "ns");
    }
}

template <class Count>
void Memory(benchmark::State &state, Count count) {
    constexpr int32_t kMessages = 50000;
    auto pBlock = std::make_unique<VYX_MSG_BLOCK_T>();
    pBlock->iDataLen = 64;
    for (auto _ : state) {
        VYX_HANDLE_MSGQ hQueue = nullptr;
        (void)VYX_MsgQCreateEx(&hQueue);
        const size_t nBefore = mallinfo2().uordblks + mallinfo2().hblkhd;
        for (int32_t n = 0; n < kMessages; ++n) {
            pBlock->iPriority = count(n);
            (void)VYX_MsgQSendEx(hQueue, pBlock.get());
        }
        pBlock->iDataLen = VYX_MSG_DATA_SIZE; // a receive has the library put them in order
        (void)VYX_MsgQReceiveEx(hQueue, pBlock.get(), 0);
        const size_t nAfter = mallinfo2().uordblks + mallinfo2().hblkhd;
        (void)VYX_MsgQDestroyEx(hQueue);
        bench::Observed(state, static_cast<double>(nAfter - nBefore) / (kMessages - 1) - 64, "bytes", 96);
    }
}

void MemoryEqual(benchmark::State &state) {
    Memory(state, [](int32_t) { return 0; });
}
void MemoryDistinct(benchmark::State &state) {
    Memory(state, [](int32_t n) { return n; });
}

} // namespace

int main(int argc, char **argv) {
    (void)RegisterMessagesThrough<VyxQueue>("vyx", 0);
    (void)RegisterMessagesThrough<SystemQueue>("mq_send", 1.0);
    (void)RegisterMessagesThrough<HeapQueue>("heap", 1.0);
    (void)RegisterWakeWithLimit<VyxQueue>("vyx", 0);
    (void)RegisterWakeWithLimit<SystemQueue>("mq_timedreceive", 1.1);
    (void)RegisterWakeWithLimit<HeapQueue>("heap", 0);
    bench::Figure("send_cost_100000_equal", {{"vyx", SendCost<100000, 1>}});
    bench::Figure("send_cost_10000_priorities", {{"vyx", SendCost<10000, 10000>}});
    const std::vector<int64_t> sizes = {1, 10, 100, 1000, 10000, 100000, 1000000};
    bench::Figure("pair_cost_equal", {{"vyx", PairCost<VyxQueue, 1>}, {"heap", PairCost<HeapQueue, 1>}},
                  "queued", sizes);
    bench::Figure("pair_cost_distinct",
                  {{"vyx", PairCost<VyxQueue, UINT32_MAX>}, {"heap", PairCost<HeapQueue, UINT32_MAX>}},
                  "queued", sizes);
    bench::Figure("memory_equal", {{"vyx", MemoryEqual}});
    bench::Figure("memory_distinct", {{"vyx", MemoryDistinct}});
    return bench::Run(argc, argv);
}
