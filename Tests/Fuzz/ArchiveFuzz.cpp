// The archive: bytes that anybody may have sent, taken out by any sequence of reads. Each value, the cursor and the
// log are what the model says; and what was read comes back when it is written and read again.

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Pattern/QMSerializable.h"
#include "Tests/Fuzz/Support/ArchiveModel.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"
#include "Utility/QMString.h"

namespace {

using QMSerialization::Archive;
using wpp_test::ArchiveModel;
using wpp_test::FuzzInput;

constexpr std::uint32_t kLargestCodePage = 52;

/// An object that keeps the bytes it is given.
class Blob : public QMSerialization::QMSerializable {
public:
    bool serialize() override {
        archive.clear();
        archive.write(bytes.data(), static_cast<int>(bytes.size()));
        return true;
    }
    bool deserialize(const void* data, unsigned length) override {
        const auto* first = static_cast<const std::uint8_t*>(data);
        bytes.assign(first, first + length);
        wasGiven = true;
        return true;
    }

    std::vector<std::uint8_t> bytes;
    bool wasGiven = false;
};

class Reading {
public:
    Reading(const std::vector<std::uint8_t>& bytes, bool reserving)
        : archive(reserving ? std::make_unique<Archive>(bytes.size()) : std::make_unique<Archive>()),
          model(bytes.data(), bytes.size()) {
        archive->write(bytes.data(), static_cast<int>(bytes.size()));
        FUZZ_CHECK(archive->getSize() == bytes.size());
        FUZZ_CHECK(bytes.empty() || std::memcmp(archive->getBuffer(), bytes.data(), bytes.size()) == 0);
    }

    void readOne(FuzzInput& input) {
        switch (input.takeByte() % 19) {
            case 0:
                return readBool();
            case 1:
                return readByte<char>();
            case 2:
                return readByte<signed char>();
            case 3:
                return readByte<unsigned char>();
            case 4:
                return readNumber<std::int16_t>();
            case 5:
                return readNumber<std::uint16_t>();
            case 6:
                return readNumber<std::int32_t>();
            case 7:
                return readNumber<std::uint32_t>();
            case 8:
                return readLong<std::int64_t>();
            case 9:
                return readLong<std::uint64_t>();
            case 10:
                return readReal<float>();
            case 11:
                return readReal<double>();
            case 12:
                return readRaw(input.takeByte());
            case 13:
                return archive->read(nullptr, input.takeByte());
            case 14:
                return readList(input.takeWord());
            case 15:
                return readText(static_cast<int>(input.takeByte()) - 1);
            case 16:
                return readWideText();
            case 17:
                return readString();
            default:
                return readObject();
        }
    }

    void check() const {
        FUZZ_CHECK(archive->getReadPos() == model.cursor);
        FUZZ_CHECK(archive->getRemaining() == model.remaining());
        FUZZ_CHECK(model.agreesWithLog());
        FUZZ_CHECK(wpp_test::logLines() == model.failures);
        FUZZ_CHECK(wpp_test::assertionReports() == falseBools);
    }

    void clear() {
        archive->clear();
        FUZZ_CHECK(archive->getSize() == 0 && archive->getReadPos() == 0 && archive->getRemaining() == 0);
    }

private:
    void readBool() {
        bool value = true;
        archive->read(value);
        const unsigned byte = model.byte();
        falseBools += byte > 1 ? 1 : 0;
        FUZZ_CHECK(value == (byte != 0));
        Archive echo;
        bool again = !value;
        echo.write(value);
        echo.read(again);
        FUZZ_CHECK(again == value && echo.getSize() == 1);
    }

    template <class T>
    void readByte() {
        T value = 1;
        archive->read(value);
        FUZZ_CHECK(static_cast<std::uint8_t>(value) == model.byte());
        comesBack(value, sizeof(value));
    }

    template <class T>
    void readNumber() {
        T value = 1;
        archive->read(value);
        FUZZ_CHECK(value == static_cast<T>(model.number(sizeof(T))));
        comesBack(value, sizeof(value));
    }

    template <class T>
    void readLong() {
        T value = 1;
        archive->read(value);
        const std::uint64_t high = model.word();
        const std::uint64_t low = model.word();
        FUZZ_CHECK(value == static_cast<T>((high << 32) | low));
        comesBack(value, sizeof(value));
    }

    template <class T>
    void readReal() {
        T value = 1;
        archive->read(value);
        T expected = 0;
        model.raw(expected);
        FUZZ_CHECK(std::memcmp(&value, &expected, sizeof(value)) == 0);
        Archive echo;
        T again = 1;
        echo.write(value);
        echo.read(again);
        FUZZ_CHECK(std::memcmp(&again, &value, sizeof(value)) == 0 && echo.getRemaining() == 0);
    }

    void readRaw(std::uint32_t length) {
        // Memory of exactly this size, so that one byte too many is noticed.
        std::vector<std::uint8_t> place(length + std::size_t{1}, 0xA5);
        place.pop_back();
        place.shrink_to_fit();
        std::uint8_t none = 0;
        archive->read(length == 0 ? &none : place.data(), length);
        if (model.has(length)) {
            for (const std::uint8_t byte : place) {
                FUZZ_CHECK(byte == model.byte());
            }
        } else {
            FUZZ_CHECK(place == std::vector<std::uint8_t>(length, 0xA5));
        }
    }

    void readList(std::uint32_t length) {
        std::vector<std::uint8_t> bytes{1, 2, 3};
        archive->read(bytes, length);
        const std::string expected = length == 0 ? std::string() : model.bytes(length);
        FUZZ_CHECK(std::string(bytes.begin(), bytes.end()) == expected);
    }

    void readText(int maxLength) {
        std::string value = "before";
        archive->read(value);
        FUZZ_CHECK(value == model.text());
        Archive echo;
        std::string again = "before";
        echo.write(value, maxLength);
        echo.read(again);
        const std::size_t kept = maxLength < 0 ? value.size() : static_cast<std::size_t>(maxLength);
        FUZZ_CHECK(again == value.substr(0, kept) && echo.getRemaining() == 0);
    }

    void readWideText() {
        std::wstring value = L"before";
        archive->read(value);
        FUZZ_CHECK(value == model.wideText());
        comesBack(value, 4 + 4 * value.size());
    }

    void readString() {
        QMString value("before", QM_CODE_PAGE_UTF8);
        archive->read(value);
        const std::uint32_t page = std::min(model.word(), kLargestCodePage);
        const std::size_t failuresBefore = model.failures;
        const std::uint32_t kind = model.word();
        const bool hasKind = model.failures == failuresBefore;
        FUZZ_CHECK(value.CodePage() == page);
        FUZZ_CHECK((value.NarrowText() != nullptr) == (hasKind && kind == 0));
        FUZZ_CHECK((value.WideText() != nullptr) == (hasKind && kind == 1));
        if (value.NarrowText() != nullptr) {
            FUZZ_CHECK(*value.NarrowText() == model.text());
        }
        if (value.WideText() != nullptr) {
            FUZZ_CHECK(*value.WideText() == model.wideText());
        }
        stringComesBack(value);
    }

    void stringComesBack(const QMString& value) {
        Archive echo;
        echo.write(value);
        QMString again(L"before");
        echo.read(again);
        FUZZ_CHECK(again.CodePage() == value.CodePage() && echo.getRemaining() == 0);
        const auto same = [](const auto* left, const auto* right) {
            return (left == nullptr) == (right == nullptr) && (left == nullptr || *left == *right);
        };
        FUZZ_CHECK(same(again.NarrowText(), value.NarrowText()) && same(again.WideText(), value.WideText()));
        // A string without a text is written without a kind, and the read of one is logged.
        model.failures += value.NarrowText() == nullptr && value.WideText() == nullptr ? 1 : 0;
    }

    void readObject() {
        Blob blob;
        archive->read(blob);
        const std::uint64_t announced = model.word();
        const std::uint64_t held = model.remaining();
        FUZZ_CHECK(blob.wasGiven == (held > 0));
        if (held == 0) {
            ++model.failures;
            return;
        }
        FUZZ_CHECK(blob.bytes.size() == std::min(announced, held));
        ArchiveModel content = model;
        for (const std::uint8_t byte : blob.bytes) {
            FUZZ_CHECK(byte == content.byte());
        }
        model.skip(announced);
        objectComesBack(blob);
    }

    void objectComesBack(Blob& blob) {
        if (blob.bytes.empty()) {
            return;
        }
        Archive echo;
        echo.write(blob);
        Blob again;
        echo.read(again);
        FUZZ_CHECK(again.bytes == blob.bytes && echo.getRemaining() == 0);
    }

    template <class T>
    static void comesBack(const T& value, std::size_t width) {
        Archive echo;
        T again{};
        echo.write(value);
        FUZZ_CHECK(echo.getSize() == width);
        echo.read(again);
        FUZZ_CHECK(again == value && echo.getRemaining() == 0);
    }

    const std::unique_ptr<Archive> archive;
    ArchiveModel model;
    std::size_t falseBools = 0;
};

/// Bytes that are written often enough outgrow what an archive has reserved, and stay what they were.
void checkGrowth(const std::vector<std::uint8_t>& bytes) {
    constexpr std::size_t kTimes = 5;
    Archive archive;
    for (std::size_t i = 0; i < kTimes; ++i) {
        archive.write(bytes.data(), static_cast<int>(bytes.size()));
    }
    FUZZ_CHECK(archive.getSize() == kTimes * bytes.size());
    for (std::size_t i = 0; i < kTimes && !bytes.empty(); ++i) {
        FUZZ_CHECK(std::memcmp(archive.getBuffer() + i * bytes.size(), bytes.data(), bytes.size()) == 0);
    }
    archive.clear();
    FUZZ_CHECK(archive.getSize() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    wpp_test::forgetLog();
    const unsigned length = input.takeByte();
    const bool reserving = length % 2 != 0;
    const std::vector<std::uint8_t> bytes = input.takeBytes(length);
    checkGrowth(bytes);
    Reading reading(bytes, reserving);
    while (!input.isEmpty()) {
        reading.readOne(input);
        reading.check();
    }
    reading.clear();
    return 0;
}
