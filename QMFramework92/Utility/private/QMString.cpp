#include "Utility/QMString.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "Diagnostics/QMLog.h"

namespace {

constexpr int kNotFound = -1;

/// Runs what takes memory for a text. @return its result; false, with the failure logged, without memory.
template <class Step>
bool withMemory(const char* function, Step step) noexcept {
    try {
        return step();
    } catch (const std::exception&) {
        errno = ENOMEM;
        qm_LogStdErrorShort(QM_SOURCE_PATH, function, __LINE__);
        return false;
    }
}

bool startsCharacter(char byte) {
    constexpr unsigned kTopTwoBits = 0xC0;
    constexpr unsigned kContinuation = 0x80;
    return (static_cast<unsigned char>(byte) & kTopTwoBits) != kContinuation;
}

}  // namespace

QMString::QMString(const QMString& other) {
    *this = other;
}

QMString& QMString::operator=(const QMString& other) {
    withMemory("operator=", [&] {
        Store copy(other.store);
        store = std::move(copy);
        codePage = other.codePage;
        return true;
    });
    return *this;
}

QMString::QMString(const char* text, unsigned textCodePage) {
    if (!assign(text, textCodePage)) {
        QM_LOG_ERROR("error\n");
    }
}

QMString::QMString(const wchar_t* text) {
    if (!assign(text)) {
        QM_LOG_ERROR("error\n");
    }
}

QMString::QMString(const std::uint16_t* text, unsigned textCodePage) {
    if (!Copy(text, textCodePage)) {
        QM_LOG_ERROR("error\n");
    }
}

bool QMString::assign(const char* text, unsigned newCodePage) {
    if (text == nullptr) {
        return false;
    }
    return withMemory("assign", [&] {
        // The text may be this string's own, so it is copied before the store changes.
        std::string copy(text);
        if (newCodePage == QM_CODE_PAGE_UTF8) {
            store = Utf8{std::move(copy)};
        } else {
            store = Narrow{std::move(copy)};
        }
        codePage = newCodePage;
        return true;
    });
}

bool QMString::assign(const wchar_t* text) {
    if (text == nullptr) {
        return false;
    }
    return withMemory("assign", [&] {
        store = std::wstring(text);
        codePage = QM_CODE_PAGE_WIDE;
        return true;
    });
}

bool QMString::Copy(const std::uint16_t* text, unsigned newCodePage) {
    if (newCodePage == QM_CODE_PAGE_16BIT_REFUSED) {
        QM_LOG_ERROR("not support for now.\n");
        return false;
    }
    if (text == nullptr || (newCodePage != QM_CODE_PAGE_16BIT_A && newCodePage != QM_CODE_PAGE_16BIT_B)) {
        QM_LOG_ERROR("invalid param.\n");
        return false;
    }
    return withMemory("Copy", [&] {
        std::u16string units;
        for (; *text != 0; ++text) {
            units.push_back(static_cast<char16_t>(*text));
        }
        store = std::move(units);
        codePage = newCodePage;
        return true;
    });
}

bool QMString::isEmpty() const {
    struct IsEmpty {
        bool operator()(const std::monostate&) const { return true; }
        bool operator()(const Narrow& narrow) const { return narrow.text.empty(); }
        bool operator()(const Utf8& utf8) const { return utf8.text.empty(); }
        bool operator()(const std::wstring& wide) const { return wide.empty(); }
        bool operator()(const std::u16string& units) const { return units.empty(); }
    };
    return std::visit(IsEmpty{}, store);
}

const char* QMString::ToCHAR(unsigned requestedPage) {
    if (std::holds_alternative<std::monostate>(store)) {
        return nullptr;
    }
    if (std::holds_alternative<Utf8>(store)) {
        return utf8ToChar(requestedPage);
    }
    return std::holds_alternative<Narrow>(store) ? narrowToChar(requestedPage) : wideToChar(requestedPage);
}

const char* QMString::utf8ToChar(unsigned requestedPage) const {
    const std::string& text = std::get<Utf8>(store).text;
    if (requestedPage == codePage || text.empty()) {
        return text.c_str();
    }
    constexpr int kNothingConverted = 0;
    qm_Log(QM_SOURCE_PATH, "ToCHAR", __LINE__, QM_LOG_LEVEL_ERROR, "faild to convert ret[%d]\n",
           kNothingConverted);
    return nullptr;
}

const char* QMString::narrowToChar(unsigned requestedPage) {
    if (requestedPage == QM_CODE_PAGE_WIDE) {
        qm_Log(QM_SOURCE_PATH, "ToCHAR", __LINE__, QM_LOG_LEVEL_ERROR, "invalid code page\n");
        return nullptr;
    }
    if (!isEmpty()) {
        qm_Log(QM_SOURCE_PATH, "ToCHAR", __LINE__, QM_LOG_LEVEL_ERROR, "faild to convert\n");
        return nullptr;
    }
    return emptyAsUtf8();
}

const char* QMString::wideToChar(unsigned requestedPage) {
    const char* problem = requestedPage == QM_CODE_PAGE_WIDE   ? "invalid code page\n"
                          : requestedPage != QM_CODE_PAGE_UTF8 ? "not support for now.\n"
                          : !isEmpty()                         ? "faild to convert\n"
                                                               : nullptr;
    if (problem != nullptr) {
        qm_Log(QM_SOURCE_PATH, "ToCHAR", __LINE__, QM_LOG_LEVEL_ERROR, "%s", problem);
        return nullptr;
    }
    return emptyAsUtf8();
}

const char* QMString::emptyAsUtf8() {
    return store.emplace<Utf8>().text.c_str();
}

const wchar_t* QMString::ToWCHAR() {
    if (const auto* wide = std::get_if<std::wstring>(&store)) {
        return wide->c_str();
    }
    if (codePage == QM_CODE_PAGE_WIDE) {
        QM_LOG_ERROR("unknown code page\n");
        return nullptr;
    }
    if (std::holds_alternative<std::monostate>(store)) {
        return nullptr;
    }
    if (std::holds_alternative<std::u16string>(store)) {
        QM_LOG_ERROR("not support for now.\n");
        return nullptr;
    }
    if (!isEmpty()) {
        QM_LOG_ERROR("faild to convert\n");
        return nullptr;
    }
    return store.emplace<std::wstring>().c_str();
}

std::size_t QMString::Length() const {
    if (const auto* narrow = std::get_if<Narrow>(&store)) {
        return narrow->text.size();
    }
    if (const auto* wide = std::get_if<std::wstring>(&store)) {
        return wide->size();
    }
    if (const auto* units = std::get_if<std::u16string>(&store)) {
        return units->size();
    }
    const auto* utf8 = std::get_if<Utf8>(&store);
    if (utf8 == nullptr) {
        return 0;
    }
    if (codePage != QM_CODE_PAGE_UTF8) {
        QM_LOG_ERROR("sorry, now under construction...\n");
        return 0;
    }
    return static_cast<std::size_t>(std::count_if(utf8->text.begin(), utf8->text.end(), startsCharacter));
}

int QMString::LastIndexOf(const char* text, unsigned from) const {
    if (text == nullptr || *text == '\0') {
        return kNotFound;
    }
    const auto* utf8 = std::get_if<Utf8>(&store);
    if (utf8 == nullptr) {
        QM_LOG_ERROR("not support for now.\n");
        return kNotFound;
    }
    const std::size_t length = Length();
    const std::size_t lastStart = from == kFromEnd ? length : from;
    if (lastStart > length) {
        return kNotFound;
    }
    // The bound is a count of characters and the search counts bytes; callers search ASCII, where they agree.
    const std::size_t found = utf8->text.rfind(text, lastStart);
    return found == std::string::npos ? kNotFound : static_cast<int>(found);
}

QMString QMString::SubStr(std::size_t start, std::size_t count) const {
    if (isEmpty()) {
        QM_LOG_ERROR("no string\n");
        return {};
    }
    const auto* utf8 = std::get_if<Utf8>(&store);
    if (utf8 == nullptr) {
        QM_LOG_ERROR("not support for now.\n");
        return {};
    }
    if (start > utf8->text.size()) {
        QM_LOG_ERROR("error\n");
        return {};
    }
    QMString part;
    withMemory("SubStr", [&] { return part.assign(utf8->text.substr(start, count).c_str(), codePage); });
    return part;
}

bool QMString::join(const QMString& other, Side side, const char* function) {
    const auto* added = std::get_if<Utf8>(&other.store);
    if (other.isEmpty()) {
        qm_Log(QM_SOURCE_PATH, function, __LINE__, QM_LOG_LEVEL_ERROR, "no string in param\n");
        return false;
    }
    const bool hasNoStore = std::holds_alternative<std::monostate>(store);
    if (added == nullptr || (!hasNoStore && !std::holds_alternative<Utf8>(store))) {
        qm_Log(QM_SOURCE_PATH, function, __LINE__, QM_LOG_LEVEL_ERROR, "not support for now.\n");
        return false;
    }
    return withMemory(function, [&] {
        if (hasNoStore) {
            store = Utf8{added->text};
            codePage = other.codePage;
            return true;
        }
        const std::string& own = std::get<Utf8>(store).text;
        store = Utf8{side == Side::kBehind ? own + added->text : added->text + own};
        return true;
    });
}

bool QMString::Append(const QMString& other) {
    return join(other, Side::kBehind, __func__);
}

bool QMString::AppendToHead(const QMString& other) {
    return join(other, Side::kInFront, __func__);
}

QMString& QMString::operator=(const char* text) {
    if (!assign(text, QM_CODE_PAGE_UTF8)) {
        QM_LOG_ERROR("error\n");
    }
    return *this;
}

QMString& QMString::operator=(const wchar_t* text) {
    if (!assign(text)) {
        QM_LOG_ERROR("error\n");
    }
    return *this;
}

QMString& QMString::operator+=(const QMString& other) {
    if (!Append(other)) {
        QM_LOG_ERROR("error\n");
    }
    return *this;
}

QMString& QMString::operator+=(const char* text) {
    return *this += QMString(text, QM_CODE_PAGE_UTF8);
}

QMString& QMString::operator+=(const wchar_t* text) {
    return *this += QMString(text);
}

QMString operator+(const QMString& left, const QMString& right) {
    return QMString(left) += right;
}

QMString operator+(const QMString& left, const char* right) {
    return QMString(left) += right;
}

QMString operator+(const QMString& left, const wchar_t* right) {
    return QMString(left) += right;
}

const std::string* QMString::NarrowText() const {
    if (const auto* utf8 = std::get_if<Utf8>(&store)) {
        return &utf8->text;
    }
    const auto* narrow = std::get_if<Narrow>(&store);
    return narrow == nullptr ? nullptr : &narrow->text;
}

const std::wstring* QMString::WideText() const {
    return std::get_if<std::wstring>(&store);
}

void QMString::Restore(unsigned newCodePage) {
    codePage = newCodePage;
    store = std::monostate{};
}

void QMString::Restore(unsigned newCodePage, std::string text) {
    codePage = newCodePage;
    if (newCodePage == QM_CODE_PAGE_UTF8) {
        store = Utf8{std::move(text)};
    } else {
        store = Narrow{std::move(text)};
    }
}

void QMString::Restore(unsigned newCodePage, std::wstring text) {
    codePage = newCodePage;
    store = std::move(text);
}
