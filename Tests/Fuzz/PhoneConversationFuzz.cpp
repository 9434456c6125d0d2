// What is said over a transport once it stands, over RFCOMM and over TLS alike: hostile phones on up to four links at
// once, run on one thread. A link's bytes come from the input, and while one link waits for bytes the next one is
// run, so that they meet in each other's midst.
//
// Whatever a phone says, the head unit is told of no text that is too long and of nobody who was not let in, a phone
// hears whole messages of which Settings is the first, every start that was asked for ends, and each transport is
// closed and released.

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"
#include "private/Conversation.h"

namespace {

using namespace wifi_projection_protocol;

constexpr unsigned kMostLinks = 4;

/// What the links of one input have done to the head unit.
struct HeadUnit {
    int answer = 0;
    bool knowsAll = false;
    bool throws = false;
    unsigned questions = 0;
    std::vector<std::string> clientIds;  // every one that it has heard of, over and over
};

void checkText(const std::string& text) {
    FUZZ_CHECK(text.size() <= kMaxTextSize);
}

class Callback final : public WifiProjectionProtocolCallback {
public:
    explicit Callback(HeadUnit& unit) : headUnit(unit) {}

    int canStartProjection(const ClientInfo& client) override {
        check(client);
        ++headUnit.questions;
        return headUnit.answer;
    }
    void onReadyForProjection(const ClientInfo& client) override { check(client); }
    void onWifiConnectStatus(const std::string& clientId, const std::uint32_t&,
                             const std::string& text) override {
        FUZZ_CHECK(!clientId.empty() && clientId.size() <= kMaxClientIdSize);
        checkText(text);
        headUnit.clientIds.push_back(clientId);
    }
    void onWifiVersionResponseFailure(const ClientInfo& client, const std::uint32_t&) override {
        check(client);
    }
    void onClientLost(const ClientInfo& client) override {
        check(client);
        if (headUnit.throws) {
            throw std::runtime_error("the head unit fails");
        }
    }
    bool isClientKnown(const std::string& clientId) override {
        if (headUnit.throws) {
            throw std::runtime_error("the head unit fails");
        }
        headUnit.clientIds.push_back(clientId);
        return headUnit.knowsAll || clientId[0] % 2 == 0;
    }

private:
    void check(const ClientInfo& client) {
        FUZZ_CHECK(!client.clientId.empty() && client.clientId.size() <= kMaxClientIdSize);
        FUZZ_CHECK(!client.transports.empty());
        checkText(client.phoneName);
        checkText(client.phoneInfo.description());
        headUnit.clientIds.push_back(client.clientId);
    }

    HeadUnit& headUnit;
};

class InfoProvider final : public WifiProjectionInfoProvider {
public:
    explicit InfoProvider(std::size_t textSize) : text(textSize, 'w') {}

    InetSocketAddress projectionAddress() override { return {"192.168.1.1", 30516}; }
    std::string wifiInfo1() override { return text; }
    std::string wifiInfo2() override { return "2"; }
    std::string wifiInfo3() override { return "3"; }
    int wifiInfo4() override { return 4; }

private:
    const std::string text;
};

/// What a link's end leaves behind, and what its phone has heard.
struct Traffic {
    std::string heard;
    unsigned closes = 0;
    unsigned releases = 0;
};

class Session;

class Transport final : public TransportInputOutput {
public:
    Transport(Session& owner, Traffic& record, unsigned number)
        : session(owner), traffic(record), link(number) {}
    ~Transport() override { ++traffic.releases; }
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    int read(void* destination, unsigned length) override;
    int write(const void* source, unsigned length) override;
    void close() override { ++traffic.closes; }

private:
    Session& session;
    Traffic& traffic;
    const unsigned link;
};

/// One input: everything that a library has, except the threads of its links.
class Session {
public:
    explicit Session(wpp_test::FuzzInput& fuzzInput)
        : input(fuzzInput),
          flags(input.takeByte()),
          settings(std::make_unique<InfoProvider>((flags & 8) != 0 ? phone_protocol::kMaxMessageSize : 1),
                   wifi_discovery::WifiChannelType{1}, {36, 149}, "head unit"),
          registry((flags & 4) != 0 ? 2 : kMostLinks) {
        headUnit.answer = static_cast<int>(flags) - 64;
        headUnit.knowsAll = (flags & 1) != 0;
        headUnit.throws = (flags & 2) != 0;
    }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void run() {
        do {
            runNextLink();
        } while (!input.isEmpty() && conversations.size() < kMostLinks);
        for (std::size_t i = 0; i < conversations.size(); ++i) {
            FUZZ_CHECK(traffics[i].closes == 1 && traffics[i].releases == 1);
            checkHeard(traffics[i].heard);
        }
        for (std::future<std::uint32_t>& start : starts) {
            FUZZ_CHECK(start.wait_for(std::chrono::seconds(0)) == std::future_status::ready);
            start.get();
        }
        FUZZ_CHECK(answersHeard <= headUnit.questions);
        questions.stop();
        registry.stop();
        FUZZ_CHECK(registry.takeAny() == nullptr);
    }

    int read(void* destination, unsigned length) {
        for (;;) {
            if (input.isEmpty()) {
                return -1;
            }
            FUZZ_CHECK(reading().deadline() != Supervised::Clock::time_point());
            const unsigned choice = input.takeByte();
            switch (choice % 8) {
                case 0:
                    return -1;
                case 1:
                    return 0;
                case 2:
                    runNextLink();
                    break;
                case 3:
                    start(choice);
                    break;
                case 4:
                    drop(choice);
                    break;
                case 5:
                    takeAway(choice);
                    break;
                default:
                    return deliver(choice, destination, length);
            }
        }
    }

    bool failsWrite(unsigned link) const { return (flags & 16) != 0 && link % 2 == 1; }

private:
    /// A piece of a phone's bytes; mostly a whole message, made of the fields that the input holds.
    int deliver(unsigned choice, void* destination, unsigned length) {
        std::vector<std::uint8_t> bytes = input.takeBytes(input.takeByte());
        if (choice % 8 == 6) {
            bytes.insert(bytes.begin(), {0, 0, 0, static_cast<std::uint8_t>(bytes.size())});
        }
        if (choice >= 0xE0) {
            // Texts above their limits are longer than an input should be.
            bytes.resize(kReadSize, bytes.empty() ? std::uint8_t{0} : bytes.back());
        }
        FUZZ_CHECK(bytes.size() <= length);
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(destination));
        return static_cast<int>(bytes.size());
    }

    void runNextLink() {
        if (conversations.size() == kMostLinks || isTakenAway) {
            return;
        }
        const auto number = static_cast<unsigned>(conversations.size());
        const TransportType type =
            ((flags >> 5) + number) % 2 != 0 ? TransportType::kRfcomm : TransportType::kTcp;
        const std::string name = "link " + std::to_string(number);
        const ConversationServices services{callback,     settings, registry, questions,
                                            supervisor(), log(),    limits};
        conversations.push_back(std::make_shared<Conversation>(
            services, name, type, std::make_unique<Transport>(*this, traffics[number], number)));
        const std::shared_ptr<Conversation> conversation = conversations.back();
        ClientRegistry::Link replaced;
        const bool added = registry.add(conversation, replaced);
        if (replaced) {
            replaced->drop();
        }
        links.push_back(conversation.get());
        added ? conversation->run() : conversation->abandon();
        links.pop_back();
        isTakenAway = false;
        FUZZ_CHECK(conversation->deadline() == Supervised::kNoDeadline);
        FUZZ_CHECK(conversation->type() == type && conversation->name() == name);
    }

    /// As the receiver asks for it: for a client, over its TLS link.
    void start(unsigned choice) {
        if (headUnit.clientIds.empty()) {
            return;
        }
        const std::string& clientId = headUnit.clientIds[(choice / 8) % headUnit.clientIds.size()];
        if (const ClientRegistry::Link link = registry.tcpLinkOf(clientId)) {
            starts.push_back(link->startProjection(wifi_discovery::StartRequestReason{choice}));
        }
    }

    Conversation& reading() { return *links.back(); }

    /// The receiver has disconnected the link that is being read, which is about to be dropped; or the whole library
    /// is about to end. No further link is run in its midst: one of the same client would wait for its loss.
    void takeAway(unsigned choice) {
        if (choice >= 128) {
            questions.stop();
        } else {
            registry.take(reading().name());
            isTakenAway = true;
        }
    }

    void drop(unsigned choice) {
        const std::shared_ptr<Conversation> conversation = conversations[(choice / 8) % conversations.size()];
        choice < 128 ? conversation->drop() : conversation->endLate();
    }

    void checkHeard(const std::string& bytes) {
        phone_protocol::PhoneMessageDecoder decoder;
        std::vector<std::string> messages;
        FUZZ_CHECK(decoder.feed(bytes.data(), bytes.size(), messages) && !decoder.isMidMessage());
        bool isFirst = true;
        for (const std::string& bytesOfOne : messages) {
            phone_protocol::HeadUnitMessage message;
            FUZZ_CHECK(message.ParseFromString(bytesOfOne));
            if (message.has_start_answer()) {
                FUZZ_CHECK(message.start_answer().answer() == headUnit.answer);
                ++answersHeard;
            }
            FUZZ_CHECK(message.has_settings() == isFirst);
            FUZZ_CHECK(message.kind_case() != phone_protocol::HeadUnitMessage::KIND_NOT_SET);
            isFirst = false;
        }
    }

    // The supervisor's thread and the log outlive the inputs.
    static Supervisor& supervisor() {
        static Supervisor instance;
        return instance;
    }
    static LibraryLog& log() {
        static LibraryLog instance(nullptr);
        return instance;
    }

    wpp_test::FuzzInput& input;
    const unsigned flags;
    const Limits limits;
    HeadUnit headUnit;
    Callback callback{headUnit};
    SettingsSource settings;
    ClientRegistry registry;
    QuestionQueue questions;
    std::vector<Traffic> traffics{kMostLinks};
    std::vector<std::shared_ptr<Conversation>> conversations;
    std::vector<Conversation*> links;  // those being read, the innermost last
    bool isTakenAway = false;
    std::vector<std::future<std::uint32_t>> starts;
    unsigned answersHeard = 0;
};

int Transport::read(void* destination, unsigned length) {
    return session.read(destination, length);
}

int Transport::write(const void* source, unsigned length) {
    if (session.failsWrite(link)) {
        return -1;
    }
    traffic.heard.append(static_cast<const char*>(source), length);
    return 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    wpp_test::FuzzInput input(data, size);
    Session session(input);
    session.run();
    return 0;
}
