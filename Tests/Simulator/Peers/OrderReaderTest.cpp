#include "Simulator/private/Peers/OrderReader.h"

#include <unistd.h>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class OrderReaderTest : public LoopTest {
protected:
    OrderReaderTest() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe(ends), 0);
        reader = std::make_unique<OrderReader>(loop, UniqueFd(ends[0]), book);
        input.reset(ends[1]);
    }

    void write(const std::string& text) {
        ASSERT_EQ(::write(input.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    std::vector<int> carriedOut;
    OrderBook book{
        events, {{"work", [this](const Json& order) { carriedOut.push_back(order["number"].get<int>()); }}}};
    UniqueFd input;
    std::unique_ptr<OrderReader> reader;
};

TEST_F(OrderReaderTest, ObeysEachLine) {
    write("{\"order\":\"work\",\"number\":1}\n{\"order\":\"work\",\"number\":2}\n");
    EXPECT_TRUE(stepUntil([&] { return carriedOut == std::vector<int>{1, 2}; }));
}

TEST_F(OrderReaderTest, WaitsForTheEndOfALine) {
    write("{\"order\":\"work\",");
    loop.step(Milliseconds(0));
    EXPECT_EQ(eventText.str(), "");
    write("\"number\":3}\n");
    EXPECT_TRUE(stepUntil([&] { return carriedOut == std::vector<int>{3}; }));
}

TEST_F(OrderReaderTest, EndOfOrdersStopsTheLoopAfterTheLastOrder) {
    write("{\"order\":\"work\",\"number\":4}");
    input.reset();
    loop.run();
    EXPECT_EQ(carriedOut, std::vector<int>{4});
}

}  // namespace
}  // namespace simulator
