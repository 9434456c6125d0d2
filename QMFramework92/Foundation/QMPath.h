#pragma once

#include <climits>
#include <cstddef>

class QMString;

/// A path given to an operation, in any of the framework's three kinds of text. It is an argument only: it is made
/// from what the caller passes and lives no longer than the call.
///
/// - Narrow text is used as it is.
/// - Wide text is encoded as UTF-8 into a buffer of PATH_MAX bytes (the terminator included) that lies in the
///   object. A text that does not fit is never used cut.
/// - A framework string is asked for its UTF-8 text, and logs itself when it has none to give.
///
/// What cannot be used (null, too long, not UTF-8) behaves as a null path.
///
///     QMFileSys::Delete("/tmp/a", false);
///     QMFileSys::Delete(L"/tmp/\u00e9", false);
///
/// Nothing is allocated, nothing logged here and nothing thrown.
class QMPath {
public:
    QMPath(std::nullptr_t) {}
    QMPath(const char* narrow) : text(narrow) {}
    QMPath(const wchar_t* wide);
    QMPath(QMString& string);
    QMPath(const QMPath&) = delete;
    QMPath& operator=(const QMPath&) = delete;

    /// The path, null when there is none to use. Valid as long as this object and what it was made from.
    const char* get() const { return text; }

    bool isEmpty() const { return text == nullptr || *text == '\0'; }

private:
    const char* text = nullptr;
    char encoded[PATH_MAX];  // filled only from wide text
};
