#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

/// Code pages that QMString tells apart; any other number may tag narrow text.
enum QMCodePage : unsigned {
    QM_CODE_PAGE_UTF8 = 32,
    QM_CODE_PAGE_16BIT_REFUSED = 34,
    QM_CODE_PAGE_16BIT_A = 35,
    QM_CODE_PAGE_16BIT_B = 36,
    QM_CODE_PAGE_WIDE = 52
};

/// One text with the number of its code page, handed out as it was put in.
///
/// The text lies in one of these stores, chosen when it is assigned: none, narrow (a code page other than
/// 32), UTF-8 (code page 32), wide (52), 16-bit units (35, 36). There is no converter: a request that needs
/// one is logged and fails, except that an empty text moves to the store that is asked for. The code page
/// stays what it was at the assignment.
///
/// Every failure is logged at level error and leaves the text as it was; none throws. Without memory for a text the
/// log shows "std library error [12 : ...]\n", and a new string is left without text. It takes no lock: one
/// thread at a time.
///
///     QMString path("a/b/c", QM_CODE_PAGE_UTF8);
///     path.LastIndexOf("/", QMString::kFromEnd);  // 3
///     path.ToCHAR(QM_CODE_PAGE_UTF8);             // "a/b/c", as put in
class QMString {
public:
    /// For LastIndexOf: from the end.
    static constexpr unsigned kFromEnd = 0xFFFFFFFFU;

    /// No text, code page 32.
    QMString() = default;

    QMString(const QMString& other);
    QMString& operator=(const QMString& other);
    QMString(QMString&& other) noexcept = default;
    QMString& operator=(QMString&& other) noexcept = default;
    ~QMString() = default;

    /// Each copies the text, up to its terminator. A text that cannot be taken (null, or a code page that
    /// 16-bit text cannot have) logs "error\n" and leaves a string without text.
    QMString(const char* text, unsigned codePage);
    explicit QMString(const wchar_t* text);
    QMString(const std::uint16_t* text, unsigned codePage);

    /// The text as a narrow string in `requestedPage`, null when there is none or it would have to be
    /// converted. It belongs to this string, and is valid until that changes or is asked for another form.
    const char* ToCHAR(unsigned requestedPage);

    /// The text as a wide string, under the same terms as ToCHAR.
    const wchar_t* ToWCHAR();

    /// UTF-8 characters, bytes of narrow text, or units of wide and 16-bit text.
    std::size_t Length() const;

    /// The byte position of the last occurrence of `text` that starts at or before `from`. Only UTF-8 text is
    /// searched. `from` counts bytes but must not exceed Length(). @return -1 when there is none.
    int LastIndexOf(const char* text, unsigned from) const;

    /// `count` bytes from byte `start` on, fewer when the UTF-8 text ends before; empty after a failure.
    QMString SubStr(std::size_t start, std::size_t count) const;

    /// Adds the text of `other` behind or in front. @return whether it was added.
    bool Append(const QMString& other);
    bool AppendToHead(const QMString& other);

    /// Takes 16-bit text of code page 35 or 36. @return whether it was taken.
    bool Copy(const std::uint16_t* text, unsigned newCodePage);

    /// What an archive keeps of a string: the code page and the text, narrow (UTF-8 included) or wide; null
    /// for what is not there. 16-bit text is neither.
    unsigned CodePage() const { return codePage; }
    const std::string* NarrowText() const;
    const std::wstring* WideText() const;

    /// Takes what an archive kept: a code page with no text, narrow text or wide text. Nothing is checked.
    void Restore(unsigned newCodePage);
    void Restore(unsigned newCodePage, std::string text);
    void Restore(unsigned newCodePage, std::wstring text);

    /// Narrow text is taken as code page 32. A failure logs "error\n".
    QMString& operator=(const char* text);
    QMString& operator=(const wchar_t* text);
    QMString& operator+=(const char* text);
    QMString& operator+=(const wchar_t* text);
    QMString& operator+=(const QMString& other);

private:
    struct Narrow {
        std::string text;
    };
    struct Utf8 {
        std::string text;
    };
    enum class Side { kBehind, kInFront };
    using Store = std::variant<std::monostate, Narrow, Utf8, std::wstring, std::u16string>;

    bool assign(const char* text, unsigned newCodePage);
    bool assign(const wchar_t* text);
    bool isEmpty() const;
    const char* emptyAsUtf8();
    const char* utf8ToChar(unsigned requestedPage) const;
    const char* narrowToChar(unsigned requestedPage);
    const char* wideToChar(unsigned requestedPage);
    bool join(const QMString& other, Side side, const char* function);

    unsigned codePage = QM_CODE_PAGE_UTF8;
    Store store;
};

/// A new string of both texts; the left one alone, logged as "error\n", when the right one cannot be added.
QMString operator+(const QMString& left, const QMString& right);
QMString operator+(const QMString& left, const char* right);
QMString operator+(const QMString& left, const wchar_t* right);
