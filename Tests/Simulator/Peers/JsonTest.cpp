#include "Simulator/private/Peers/Json.h"

#include <gtest/gtest.h>

#include <fstream>

#include "Tests/Support/TemporaryDirectory.h"

namespace simulator {
namespace {

const Json kObject = {{"text", "words"}, {"flag", true}, {"number", 200}, {"list", {1, 2}}};

TEST(Json, TextFieldGivesTheTextOrTheFallback) {
    EXPECT_EQ(textField(kObject, "text"), "words");
    EXPECT_EQ(textField(kObject, "absent", "fallback"), "fallback");
    EXPECT_THROW(textField(kObject, "number"), JsonError);
}

TEST(Json, TextThatBeginsWithAnAtSignIsAFilesContent) {
    wpp_test::TemporaryDirectory directory;
    directory.enter();
    std::ofstream("file.pem") << "line 1\nline 2\n";
    EXPECT_EQ(textField({{"text", "@file.pem"}}, "text"), "line 1\nline 2\n");
    EXPECT_THROW(textField({{"text", "@missing.pem"}}, "text"), JsonError);
}

TEST(Json, BoolFieldTakesNothingButTrueAndFalse) {
    EXPECT_TRUE(boolField(kObject, "flag", false));
    EXPECT_TRUE(boolField(kObject, "absent", true));
    EXPECT_THROW(boolField(kObject, "number", false), JsonError);
}

TEST(Json, NumberFieldKeepsToTheLimitsOfItsType) {
    EXPECT_EQ(numberField<std::uint8_t>(kObject, "number", 0), 200);
    EXPECT_THROW(numberField<std::int8_t>(kObject, "number", 0), JsonError);
    EXPECT_THROW(numberField<std::uint32_t>({{"number", -1}}, "number", 0), JsonError);
    EXPECT_THROW(numberField<int>({{"number", 1.5}}, "number", 0), JsonError);
    EXPECT_EQ(numberField<std::uint32_t>({{"number", 0xFFFFFFFFu}}, "number", 0), 0xFFFFFFFFu);
    EXPECT_EQ(numberField<int>(kObject, "absent", 7), 7);
}

TEST(Json, ListFieldIsEmptyWhenAbsent) {
    EXPECT_EQ(listField(kObject, "list").size(), 2u);
    EXPECT_TRUE(listField(kObject, "absent").empty());
    EXPECT_THROW(listField(kObject, "text"), JsonError);
}

TEST(Json, HexadecimalTextBecomesBytesAndBack) {
    EXPECT_EQ(bytesOfHex("00fFa5"), std::string("\0\xff\xa5", 3));
    EXPECT_EQ(hexOfBytes(std::string("\0\xff\xa5", 3)), "00ffa5");
    EXPECT_THROW(bytesOfHex("abc"), JsonError);
    EXPECT_THROW(bytesOfHex("0g"), JsonError);
    EXPECT_THROW(bytesOfHex("0\x11"), JsonError);
}

}  // namespace
}  // namespace simulator
