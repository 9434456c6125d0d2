#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "Benchmarks/RoundTrip/Foreign/ForeignCarriers.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

constexpr const char* kSocketName = "sd-bus";
constexpr const char* kPath = "/link";
constexpr const char* kInterface = "bench.Link";
constexpr const char* kMember = "Give";
constexpr std::uint8_t kAck = 1;
constexpr std::uint64_t kWithoutLimit = UINT64_MAX;

int require(int result, const char* call) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), call);
    }
    return result;
}

/// Takes the bytes of a call and answers it.
int give(sd_bus_message* message, void*, sd_bus_error*) {
    const void* bytes = nullptr;
    std::size_t length = 0;
    require(sd_bus_message_read_array(message, 'y', &bytes, &length), "sd_bus_message_read_array");
    return sd_bus_reply_method_return(message, "y", static_cast<int>(kAck));
}

/// A bus over a connected socket; the bus owns the socket.
sd_bus* makeBus(int socket) {
    sd_bus* bus = nullptr;
    require(sd_bus_new(&bus), "sd_bus_new");
    require(sd_bus_set_fd(bus, socket, socket), "sd_bus_set_fd");
    require(sd_bus_set_anonymous(bus, 1), "sd_bus_set_anonymous");
    return bus;
}

void serve() {
    sd_bus* bus = makeBus(acceptOne(listenLocal(kSocketName)));
    sd_id128_t id;
    require(sd_id128_randomize(&id), "sd_id128_randomize");
    require(sd_bus_set_server(bus, 1, id), "sd_bus_set_server");
    require(sd_bus_start(bus), "sd_bus_start");
    require(sd_bus_add_object(bus, nullptr, kPath, give, nullptr), "sd_bus_add_object");
    for (;;) {
        if (require(sd_bus_process(bus, nullptr), "sd_bus_process") == 0) {
            require(sd_bus_wait(bus, kWithoutLimit), "sd_bus_wait");
        }
    }
}

class SdBusAsker final : public Asker {
public:
    SdBusAsker() : bus(makeBus(connectLocal(kSocketName))) { require(sd_bus_start(bus), "sd_bus_start"); }
    ~SdBusAsker() override { sd_bus_unref(bus); }
    SdBusAsker(const SdBusAsker&) = delete;
    SdBusAsker& operator=(const SdBusAsker&) = delete;

    void use(const std::string& message) override { request = message; }

    void exchange() override {
        sd_bus_message* call = nullptr;
        sd_bus_message* reply = nullptr;
        require(sd_bus_message_new_method_call(bus, &call, nullptr, kPath, kInterface, kMember),
                "sd_bus_message_new_method_call");
        require(sd_bus_message_append_array(call, 'y', request.data(), request.size()),
                "sd_bus_message_append_array");
        require(sd_bus_call(bus, call, kWithoutLimit, nullptr, &reply), "sd_bus_call");
        std::uint8_t ack = 0;
        require(sd_bus_message_read(reply, "y", &ack), "sd_bus_message_read");
        sd_bus_message_unref(reply);
        sd_bus_message_unref(call);
        if (ack != kAck) {
            throw std::runtime_error("a message was not acknowledged");
        }
    }

private:
    sd_bus* bus;
    std::string request;
};

}  // namespace

Carrier sdBusCarrier() {
    return {"sd-bus", serve, [] { return std::make_unique<SdBusAsker>(); }};
}

}  // namespace bench
