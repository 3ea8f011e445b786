// Its streams, driven until the whole buffer is through; each thread has a loop.
#include <memory>
#include <uv.h>

#include "net_bench.h"

namespace {

class Stream {
  public:
    explicit Stream(int fd) : m_fd(fd) {
        (void)uv_loop_init(&m_loop);
        (void)uv_tcp_init(&m_loop, &m_tcp);
        (void)uv_tcp_open(&m_tcp, dup(fd)); // closing the handle closes its descriptor
        m_tcp.data = this;
    }
    ~Stream() {
        uv_close(reinterpret_cast<uv_handle_t *>(&m_tcp), nullptr);
        (void)uv_run(&m_loop, UV_RUN_DEFAULT);
        (void)uv_loop_close(&m_loop);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    static Stream &Of(int fd) {
        static thread_local std::unique_ptr<Stream> s_pStream;
        if (s_pStream == nullptr || s_pStream->m_fd != fd ||
            s_pStream->m_nConnection != netbench::g_nConnections) {
            s_pStream.reset();
            s_pStream = std::make_unique<Stream>(fd);
        }
        return *s_pStream;
    }

    ssize_t Send(const void *pBytes, size_t nSize) {
        uv_buf_t buffer =
            uv_buf_init(static_cast<char *>(const_cast<void *>(pBytes)), static_cast<unsigned>(nSize));
        uv_write_t request;
        request.data = this;
        m_bDone = false;
        (void)uv_write(&request, Handle(), &buffer, 1, [](uv_write_t *pRequest, int) {
            static_cast<Stream *>(pRequest->data)->m_bDone = true;
        });
        while (!m_bDone)
            (void)uv_run(&m_loop, UV_RUN_ONCE);
        return static_cast<ssize_t>(nSize);
    }

    ssize_t Recv(void *pBytes, size_t nSize) {
        m_pNext = static_cast<char *>(pBytes);
        m_nLeft = nSize;
        (void)uv_read_start(
            Handle(),
            [](uv_handle_t *pHandle, size_t, uv_buf_t *pBuffer) {
                auto *pStream = static_cast<Stream *>(pHandle->data);
                *pBuffer = uv_buf_init(pStream->m_pNext, static_cast<unsigned>(pStream->m_nLeft));
            },
            [](uv_stream_t *pHandle, ssize_t nRead, const uv_buf_t *) {
                auto *pStream = static_cast<Stream *>(pHandle->data);
                if (nRead > 0) {
                    pStream->m_pNext += nRead;
                    pStream->m_nLeft -= static_cast<size_t>(nRead);
                }
                if (nRead < 0 || pStream->m_nLeft == 0)
                    (void)uv_read_stop(pHandle);
            });
        while (m_nLeft != 0)
            if (uv_run(&m_loop, UV_RUN_ONCE) == 0 && m_nLeft != 0)
                return -1;
        return static_cast<ssize_t>(nSize);
    }

  private:
    uv_stream_t *Handle() { return reinterpret_cast<uv_stream_t *>(&m_tcp); }

    int m_fd;
    int m_nConnection = netbench::g_nConnections;
    uv_loop_t m_loop;
    uv_tcp_t m_tcp;
    bool m_bDone = false;
    char *m_pNext = nullptr;
    size_t m_nLeft = 0;
};

ssize_t Send(int fd, const void *pBytes, size_t nSize) {
    return Stream::Of(fd).Send(pBytes, nSize);
}
ssize_t Recv(int fd, void *pBytes, size_t nSize) {
    return Stream::Of(fd).Recv(pBytes, nSize);
}

const int kAdded = netbench::AddPeer({"libuv", netbench::Stream<Send, Recv>, netbench::PingPong<Send, Recv>});

} // namespace
