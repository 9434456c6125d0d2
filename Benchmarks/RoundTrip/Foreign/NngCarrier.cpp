#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "Benchmarks/RoundTrip/Foreign/ForeignCarriers.h"

namespace bench {

namespace {

constexpr const char* kAddress = "ipc://nng";
constexpr std::uint8_t kAck = 1;

void require(int result, const char* call) {
    if (result != 0) {
        throw std::runtime_error(std::string(call) + ": " + nng_strerror(result));
    }
}

void serve() {
    nng_socket socket;
    require(nng_rep0_open(&socket), "nng_rep0_open");
    require(nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0), "NNG_OPT_RECVMAXSZ");
    require(nng_listen(socket, kAddress, nullptr, 0), "nng_listen");
    for (;;) {
        nng_msg* message = nullptr;
        require(nng_recvmsg(socket, &message, 0), "nng_recvmsg");
        nng_msg_clear(message);
        require(nng_msg_append(message, &kAck, sizeof(kAck)), "nng_msg_append");
        require(nng_sendmsg(socket, message, 0), "nng_sendmsg");
    }
}

class NngAsker final : public Asker {
public:
    NngAsker() {
        require(nng_req0_open(&socket), "nng_req0_open");
        require(nng_dial(socket, kAddress, nullptr, NNG_FLAG_NONBLOCK), "nng_dial");
    }
    ~NngAsker() override { nng_close(socket); }
    NngAsker(const NngAsker&) = delete;
    NngAsker& operator=(const NngAsker&) = delete;

    void use(const std::string& message) override { request = message; }

    void exchange() override {
        std::uint8_t ack = 0;
        std::size_t length = sizeof(ack);
        require(nng_send(socket, request.data(), request.size(), 0), "nng_send");
        require(nng_recv(socket, &ack, &length, 0), "nng_recv");
        if (ack != kAck) {
            throw std::runtime_error("a message was not acknowledged");
        }
    }

private:
    nng_socket socket{};
    std::string request;
};

}  // namespace

Carrier nngCarrier() {
    return {"nng", serve, [] { return std::make_unique<NngAsker>(); }};
}

}  // namespace bench
