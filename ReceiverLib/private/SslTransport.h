#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "private/FileDescriptor.h"
#include "private/Limits.h"
#include "wifi_projection_protocol/TransportInputOutput.h"

namespace wifi_projection_protocol {

/// The time limits of one TLS transport.
struct SslTimeLimits {
    std::chrono::milliseconds handshake = kHandshakeTimeLimit;
    std::chrono::milliseconds write = kWriteTimeLimit;
};

/// A TLS server's end of one TCP connection.
///
/// Life: open, with the handshake due -> handshake under way, by whichever call comes first -> open ->
/// closed. An error, the end of the stream and a time limit close it like close() does, and closed is final:
/// every call returns -1 from then on. The socket itself stays open until destruction, so no call meets a
/// reused descriptor.
///
/// Any number of threads may read, write and close at once. The socket is non-blocking; `mutex` guards the
/// TLS state and is never held while waiting. Writers take turns, since a half-sent record must be finished
/// before the next begins. close() never waits; shutting the socket down wakes whoever waits.
class SslTransport : public TransportInputOutput {
public:
    /// @param context shared by reference count; may be released while the transport lives.
    /// @return empty when `fd` is no stream socket; `fd` is then untouched. Otherwise the transport owns it. It
    ///         needs no further descriptor.
    static std::unique_ptr<SslTransport> wrap(SSL_CTX* context, int fd, SslTimeLimits timeLimits);

    /// Closes. No other call may be under way.
    ~SslTransport() override;

    int read(void* destination, unsigned length) override;

    /// Sends all or fails; a phone that takes longer than the write limit to accept them fails.
    int write(const void* source, unsigned length) override;

    void close() override;

private:
    using Clock = std::chrono::steady_clock;
    enum class Handshake { kDue, kUnderWay, kDone, kFailed };

    struct SslDeleter {
        void operator()(SSL* tls) const { SSL_free(tls); }
    };

    explicit SslTransport(SslTimeLimits timeLimits) : limits(timeLimits) {}

    bool prepare(SSL_CTX* context);
    void adopt(int fd);
    bool finishHandshake();
    bool takeWritingTurn(Clock::time_point deadline);
    void endWritingTurn();
    void sayGoodbye();
    bool await(short events, Clock::time_point deadline) const;

    // Repeats `step` (SSL* -> 1 when done) until it is done, waiting for the socket in between.
    template <typename Step>
    bool perform(Step step, Clock::time_point deadline);

    // One go at `step`. @return what to wait for before the next one; kStepDone or kStepFailed when there is
    // none.
    template <typename Step>
    short attempt(Step step);

    const SslTimeLimits limits;
    int socketNumber = -1;  // what `socket` holds, for the BIO
    FileDescriptor socket;

    std::atomic<bool> closed{false};

    std::mutex mutex;
    std::condition_variable changed;  // of handshake and writing
    // Guarded by mutex.
    std::unique_ptr<SSL, SslDeleter> ssl;
    Handshake handshake = Handshake::kDue;
    bool writing = false;
    bool broken = false;  // OpenSSL allows no further call after a failed one
};

}  // namespace wifi_projection_protocol
