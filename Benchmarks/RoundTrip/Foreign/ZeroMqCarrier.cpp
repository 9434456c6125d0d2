#include <zmq.h>

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "Benchmarks/RoundTrip/Foreign/ForeignCarriers.h"

namespace bench {

namespace {

constexpr const char* kAddress = "ipc://zeromq";
constexpr std::uint8_t kAck = 1;

void require(bool succeeded, const char* call) {
    if (!succeeded) {
        throw std::runtime_error(std::string(call) + ": " + zmq_strerror(zmq_errno()));
    }
}

class Socket {
public:
    explicit Socket(int type) : context(zmq_ctx_new()), socket(zmq_socket(context, type)) {
        const int noLinger = 0;
        zmq_setsockopt(socket, ZMQ_LINGER, &noLinger, sizeof(noLinger));
    }
    ~Socket() {
        zmq_close(socket);
        zmq_ctx_term(context);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void* get() const { return socket; }

private:
    void* context;
    void* socket;
};

void serve() {
    const Socket socket(ZMQ_REP);
    require(zmq_bind(socket.get(), kAddress) == 0, "zmq_bind");
    zmq_msg_t message;
    zmq_msg_init(&message);
    for (;;) {
        require(zmq_msg_recv(&message, socket.get(), 0) >= 0, "zmq_msg_recv");
        require(zmq_send(socket.get(), &kAck, sizeof(kAck), 0) == sizeof(kAck), "zmq_send");
    }
}

class ZeroMqAsker final : public Asker {
public:
    ZeroMqAsker() { require(zmq_connect(socket.get(), kAddress) == 0, "zmq_connect"); }

    void use(const std::string& message) override { request = message; }

    void exchange() override {
        std::uint8_t ack = 0;
        require(zmq_send(socket.get(), request.data(), request.size(), 0) >= 0, "zmq_send");
        require(zmq_recv(socket.get(), &ack, sizeof(ack), 0) == sizeof(ack) && ack == kAck, "zmq_recv");
    }

private:
    Socket socket{ZMQ_REQ};
    std::string request;
};

}  // namespace

Carrier zeroMqCarrier() {
    return {"zeromq", serve, [] { return std::make_unique<ZeroMqAsker>(); }};
}

}  // namespace bench
