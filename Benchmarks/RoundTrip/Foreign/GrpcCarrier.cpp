#include <grpcpp/grpcpp.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>

#include "Benchmarks/RoundTrip/Foreign/ForeignCarriers.h"
#include "Link.grpc.pb.h"

namespace bench {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kAck = 1;
constexpr auto kConnectLimit = 10s;

/// The path has to be absolute: gRPC resolves names without regard to the working directory.
std::string address() {
    return "unix:" + (std::filesystem::current_path() / "grpc").string();
}

class LinkService final : public Link::Service {
    grpc::Status Give(grpc::ServerContext*, const Given*, Taken* reply) override {
        reply->set_ack(kAck);
        return grpc::Status::OK;
    }
};

void serve() {
    LinkService service;
    grpc::ServerBuilder builder;
    builder.SetMaxReceiveMessageSize(-1);
    builder.AddListeningPort(address(), grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const auto server = builder.BuildAndStart();
    if (server == nullptr) {
        throw std::runtime_error("the gRPC server did not start");
    }
    server->Wait();
}

class GrpcAsker final : public Asker {
public:
    GrpcAsker() : channel(grpc::CreateChannel(address(), grpc::InsecureChannelCredentials())) {
        // A first attempt that finds nobody is followed by a pause that would be part of the warm-up.
        const auto deadline = std::chrono::steady_clock::now() + kConnectLimit;
        while (!std::filesystem::exists("grpc") && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
        if (!channel->WaitForConnected(std::chrono::system_clock::now() + kConnectLimit)) {
            throw std::runtime_error("nobody serves gRPC");
        }
        stub = Link::NewStub(channel);
    }

    void use(const std::string& message) override { request.set_content(message); }

    void exchange() override {
        grpc::ClientContext context;
        Taken reply;
        const grpc::Status status = stub->Give(&context, request, &reply);
        if (!status.ok() || reply.ack() != kAck) {
            throw std::runtime_error("a message was not acknowledged: " + status.error_message());
        }
    }

private:
    std::shared_ptr<grpc::Channel> channel;
    std::unique_ptr<Link::Stub> stub;
    Given request;
};

}  // namespace

Carrier grpcCarrier() {
    return {"grpc", serve, [] { return std::make_unique<GrpcAsker>(); }};
}

}  // namespace bench
