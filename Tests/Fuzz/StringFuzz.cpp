// QMString: any sequence of its operations on two strings, against a model that keeps what was put in.

#include <optional>
#include <string>
#include <vector>

#include "Pattern/QMSerializable.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"
#include "Utility/QMString.h"

namespace {

using wpp_test::FuzzInput;

enum class Form { kNone, kNarrow, kUtf8, kWide, kUnits };

/// What a string must hold. Every text is kept as numbers, whatever their width.
struct Model {
    Form form = Form::kNone;
    unsigned page = QM_CODE_PAGE_UTF8;
    std::vector<std::uint32_t> text;

    std::string bytes() const { return std::string(text.begin(), text.end()); }
};

template <class Unit>
std::vector<std::uint32_t> unitsOf(const Unit* text) {
    std::vector<std::uint32_t> units;
    for (; *text != 0; ++text) {
        units.push_back(static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<Unit>>(*text)));
    }
    return units;
}

struct Subject {
    QMString string;
    Model model;
};

class Session {
public:
    void doOne(FuzzInput& input) {
        const unsigned choice = input.takeByte();
        Subject& one = subjects[choice & 1];
        Subject& other = subjects[(choice >> 1) & 1];
        switch ((choice >> 2) % 17) {
            case 0:
                return assignNarrow(one, input);
            case 1:
                return assignWide(one, input);
            case 2:
                return assignUnits(one, input);
            case 3:
                return assignNull(one, input);
            case 4:
                return askNarrow(one, takePage(input));
            case 5:
                return askWide(one);
            case 6:
                return search(one, input);
            case 7:
                return cut(one, input.takeByte(), input.takeByte());
            case 8:
                return join(one, other, one.string.Append(other.string), true);
            case 9:
                return join(one, other, one.string.AppendToHead(other.string), false);
            case 10:
                return addOperator(one, other);
            case 11:
                return addText(one, input);
            case 12:
                return addWideText(one, input);
            case 13:
                return restore(one, input);
            case 14:
                return archive(one);
            case 15:
                return copy(one, other);
            default:
                return sumOperators(one, other, input);
        }
    }

    void check() const {
        for (const Subject& subject : subjects) {
            checkText(subject);
            FUZZ_CHECK(subject.string.Length() == lengthOf(subject.model));
        }
    }

private:
    static std::string takeText(FuzzInput& input) {
        const std::string text = input.takeText(input.takeByte() % 24);
        return text.c_str();
    }
    /// Any page, and the one that most texts have as often as all others.
    static unsigned takePage(FuzzInput& input) {
        const unsigned choice = input.takeByte();
        return choice % 2 == 0 ? unsigned{QM_CODE_PAGE_UTF8} : choice / 4;
    }
    static std::wstring takeWide(FuzzInput& input) {
        const std::string text = takeText(input);
        return std::wstring(text.begin(), text.end());
    }

    static void assignNarrow(Subject& one, FuzzInput& input) {
        const unsigned page = takePage(input);
        const std::string text = takeText(input);
        if (page == QM_CODE_PAGE_UTF8) {
            one.string = text.c_str();
        } else {
            one.string = QMString(text.c_str(), page);
        }
        one.model = {page == QM_CODE_PAGE_UTF8 ? Form::kUtf8 : Form::kNarrow, page, unitsOf(text.c_str())};
    }

    static void assignWide(Subject& one, FuzzInput& input) {
        const std::wstring text = takeWide(input);
        one.string = text.c_str();
        one.model = {Form::kWide, QM_CODE_PAGE_WIDE, unitsOf(text.c_str())};
    }

    static void assignUnits(Subject& one, FuzzInput& input) {
        const unsigned page = 33 + input.takeByte() % 5;
        std::vector<std::uint16_t> text;
        for (unsigned count = input.takeByte() % 24; count > 0; --count) {
            text.push_back(input.takeShort());
        }
        text.push_back(0);
        const bool copied = one.string.Copy(text.data(), page);
        FUZZ_CHECK(copied == (page == QM_CODE_PAGE_16BIT_A || page == QM_CODE_PAGE_16BIT_B));
        const QMString made(text.data(), page);
        FUZZ_CHECK(made.CodePage() == (copied ? page : unsigned{QM_CODE_PAGE_UTF8}));
        FUZZ_CHECK(made.Length() == (copied ? unitsOf(text.data()).size() : 0));
        if (copied) {
            one.model = {Form::kUnits, page, unitsOf(text.data())};
        }
    }

    static void assignNull(Subject& one, FuzzInput& input) {
        const char* narrow = nullptr;
        const wchar_t* wide = nullptr;
        const std::uint16_t* units = nullptr;
        switch (input.takeByte() % 6) {
            case 0:
                one.string = narrow;
                return;
            case 1:
                one.string = wide;
                return;
            case 2:
                FUZZ_CHECK(!one.string.Copy(units, QM_CODE_PAGE_16BIT_A));
                return;
            case 3:
                one.string = QMString(narrow, QM_CODE_PAGE_UTF8);
                break;
            case 4:
                one.string = QMString(wide);
                break;
            default:
                one.string = QMString(units, QM_CODE_PAGE_16BIT_B);
                break;
        }
        one.model = {};
    }

    static void askNarrow(Subject& one, unsigned page) {
        Model& model = one.model;
        const char* text = one.string.ToCHAR(page);
        const bool isEmpty = model.text.empty();
        const bool asItIs = model.form == Form::kUtf8 && (page == model.page || isEmpty);
        const bool moves = isEmpty && ((model.form == Form::kNarrow && page != QM_CODE_PAGE_WIDE) ||
                                       (model.form == Form::kWide && page == QM_CODE_PAGE_UTF8) ||
                                       (model.form == Form::kUnits && page == QM_CODE_PAGE_UTF8));
        FUZZ_CHECK((text != nullptr) == (asItIs || moves));
        if (text != nullptr) {
            FUZZ_CHECK(text == model.bytes());
            model.form = Form::kUtf8;
        }
    }

    static void askWide(Subject& one) {
        Model& model = one.model;
        const wchar_t* text = one.string.ToWCHAR();
        const bool moves = model.text.empty() && model.page != QM_CODE_PAGE_WIDE &&
                           (model.form == Form::kNarrow || model.form == Form::kUtf8);
        FUZZ_CHECK((text != nullptr) == (model.form == Form::kWide || moves));
        if (text != nullptr) {
            FUZZ_CHECK(unitsOf(text) == model.text);
            model.form = Form::kWide;
        }
    }

    static void search(const Subject& one, FuzzInput& input) {
        const unsigned choice = input.takeByte();
        const unsigned from = choice == 0xFF ? QMString::kFromEnd : choice;
        const std::string wanted = takeText(input);
        FUZZ_CHECK(one.string.LastIndexOf(nullptr, from) == -1);
        int expected = -1;
        const std::string text = one.model.bytes();
        const std::size_t length = lengthOf(one.model);
        const std::size_t last = from == QMString::kFromEnd ? length : from;
        if (one.model.form == Form::kUtf8 && !wanted.empty() && last <= length) {
            for (std::size_t i = 0; i <= last && i < text.size(); ++i) {
                expected = text.compare(i, wanted.size(), wanted) == 0 ? static_cast<int>(i) : expected;
            }
        }
        FUZZ_CHECK(one.string.LastIndexOf(wanted.c_str(), from) == expected);
    }

    static void cut(const Subject& one, std::size_t start, std::size_t count) {
        QMString part = one.string.SubStr(start, count);
        const std::string text = one.model.bytes();
        if (one.model.form != Form::kUtf8 || text.empty() || start > text.size()) {
            FUZZ_CHECK(part.NarrowText() == nullptr && part.WideText() == nullptr);
            return;
        }
        FUZZ_CHECK(part.CodePage() == one.model.page);
        FUZZ_CHECK(part.NarrowText() != nullptr && *part.NarrowText() == text.substr(start, count));
    }

    static bool canJoin(const Model& one, const Model& other) {
        return other.form == Form::kUtf8 && !other.text.empty() &&
               (one.form == Form::kNone || one.form == Form::kUtf8);
    }

    /// What joining `other` behind or in front must make of `one`.
    static Model joined(const Model& one, const Model& other, bool behind) {
        if (!canJoin(one, other)) {
            return one;
        }
        if (one.form == Form::kNone) {
            return other;
        }
        Model sum = one;
        sum.text.insert(behind ? sum.text.end() : sum.text.begin(), other.text.begin(), other.text.end());
        return sum;
    }

    static void join(Subject& one, const Subject& other, bool added, bool behind) {
        const Model addend = other.model;
        FUZZ_CHECK(added == canJoin(one.model, addend));
        one.model = joined(one.model, addend, behind);
        keepShort(one);
    }

    static void addOperator(Subject& one, const Subject& other) {
        const Model addend = other.model;
        one.string += other.string;
        one.model = joined(one.model, addend, true);
        keepShort(one);
    }

    static void addText(Subject& one, FuzzInput& input) {
        const std::string text = takeText(input);
        one.string += text.c_str();
        one.model = joined(one.model, {Form::kUtf8, QM_CODE_PAGE_UTF8, unitsOf(text.c_str())}, true);
        keepShort(one);
    }

    static void addWideText(Subject& one, FuzzInput& input) { one.string += takeWide(input).c_str(); }

    static void sumOperators(const Subject& one, const Subject& other, FuzzInput& input) {
        const std::string text = takeText(input);
        const Subject sum{one.string + other.string, joined(one.model, other.model, true)};
        checkText(sum);
        const Model addend{Form::kUtf8, QM_CODE_PAGE_UTF8, unitsOf(text.c_str())};
        checkText({one.string + text.c_str(), joined(one.model, addend, true)});
        checkText({one.string + takeWide(input).c_str(), one.model});
    }

    static void restore(Subject& one, FuzzInput& input) {
        const unsigned page = input.takeByte() % 64;
        const unsigned kind = input.takeByte() % 3;
        if (kind == 0) {
            one.string.Restore(page);
            one.model = {Form::kNone, page, {}};
        } else if (kind == 1) {
            const std::string text = takeText(input);
            one.string.Restore(page, text);
            one.model = {page == QM_CODE_PAGE_UTF8 ? Form::kUtf8 : Form::kNarrow, page,
                         unitsOf(text.c_str())};
        } else {
            const std::wstring text = takeWide(input);
            one.string.Restore(page, text);
            one.model = {Form::kWide, page, unitsOf(text.c_str())};
        }
    }

    static void archive(const Subject& one) {
        QMSerialization::Archive archive;
        archive.write(one.string);
        QMString again;
        archive.read(again);
        Model kept = one.model;
        kept.page = std::min<unsigned>(kept.page, QM_CODE_PAGE_WIDE);
        const bool isKept = kept.form != Form::kNone && kept.form != Form::kUnits;
        if (kept.form == Form::kUtf8 && kept.page != QM_CODE_PAGE_UTF8) {
            kept.form = Form::kNarrow;  // an empty text that moved to UTF-8 comes back as its page says
        } else if (kept.form == Form::kNarrow && kept.page == QM_CODE_PAGE_UTF8) {
            kept.form = Form::kUtf8;
        }
        checkText({again, isKept ? kept : Model{Form::kNone, kept.page, {}}});
    }

    static void copy(Subject& one, const Subject& other) {
        const Subject kept = other;
        one = kept;
    }

    static std::size_t lengthOf(const Model& model) {
        if (model.form != Form::kUtf8) {
            return model.text.size();
        }
        std::size_t count = 0;
        for (const std::uint32_t byte : model.text) {
            count += (byte & 0xC0U) == 0x80U ? 0 : 1;
        }
        return model.page == QM_CODE_PAGE_UTF8 ? count : 0;
    }

    static void checkText(const Subject& subject) {
        const Model& model = subject.model;
        FUZZ_CHECK(subject.string.CodePage() == model.page);
        const std::string* narrow = subject.string.NarrowText();
        const std::wstring* wide = subject.string.WideText();
        FUZZ_CHECK((narrow != nullptr) == (model.form == Form::kNarrow || model.form == Form::kUtf8));
        FUZZ_CHECK((wide != nullptr) == (model.form == Form::kWide));
        FUZZ_CHECK(narrow == nullptr || *narrow == model.bytes());
        FUZZ_CHECK(wide == nullptr || unitsOf(wide->c_str()) == model.text);
    }

    /// Joining doubles a text; after a few dozen times it would fill the memory.
    static void keepShort(Subject& one) {
        if (one.string.NarrowText() != nullptr && one.string.NarrowText()->size() > kLongest) {
            const unsigned page = one.model.page;
            one.string.Restore(page, std::string());
            one.model = {page == QM_CODE_PAGE_UTF8 ? Form::kUtf8 : Form::kNarrow, page, {}};
        }
    }

    static constexpr std::size_t kLongest = 512;

    Subject subjects[2];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    wpp_test::forgetLog();
    Session session;
    while (!input.isEmpty()) {
        session.doOne(input);
        session.check();
    }
    return 0;
}
