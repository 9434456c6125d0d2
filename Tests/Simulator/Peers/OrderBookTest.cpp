#include "Simulator/private/Peers/OrderBook.h"

#include <stdexcept>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class OrderBookTest : public LoopTest {
protected:
    std::vector<Json> carriedOut;
    OrderBook book{events,
                   {{"work", [this](const Json& order) { carriedOut.push_back(order); }},
                    {"fail", [](const Json&) { throw std::runtime_error("no way"); }}}};
};

TEST_F(OrderBookTest, CarriesOutAnOrderWithItsFields) {
    book.obey(R"({"order":"work","depth":3})");
    ASSERT_EQ(carriedOut.size(), 1u);
    EXPECT_EQ(carriedOut[0]["depth"], 3);
    EXPECT_EQ(eventText.str(), "");
}

TEST_F(OrderBookTest, RefusesAnUnknownOrder) {
    book.obey(R"({"order":"dance"})");
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "unknown order \"dance\""}}).size(), 1u);
}

TEST_F(OrderBookTest, RefusesWhatIsNoJson) {
    book.obey("dance!");
    EXPECT_EQ(eventsNamed("order-refused", {{"order", "dance!"}}).size(), 1u);
}

TEST_F(OrderBookTest, RefusesWhatIsNoObject) {
    book.obey("[1]");
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "an order has to be an object"}}).size(), 1u);
}

TEST_F(OrderBookTest, ReportsWhyAnOrderCannotBeCarriedOut) {
    book.obey(R"({"order":"fail"})");
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "no way"}}).size(), 1u);
}

TEST_F(OrderBookTest, ReportsAnOrderThatIsNoText) {
    book.obey("\xff\xfe");
    EXPECT_EQ(eventsNamed("order-refused").size(), 1u);
}

TEST_F(OrderBookTest, IgnoresEmptyLines) {
    book.obey("");
    book.obey(" \t\r");
    EXPECT_EQ(eventText.str(), "");
}

}  // namespace
}  // namespace simulator
