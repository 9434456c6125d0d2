#include "Tests/Support/SyslogCapture.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

struct State {
    std::mutex lock;
    bool capturing = false;
    std::vector<wpp_test::SyslogCapture::Record> records;
    std::vector<wpp_test::SyslogCapture::Opening> openings;
    std::size_t closings = 0;
};

// Never destroyed: a thread may log until the very end of the process.
State& state() {
    static State* const instance = new State;
    return *instance;
}

void setCapturing(bool capturing) {
    const std::lock_guard<std::mutex> guard(state().lock);
    state().capturing = capturing;
    state().records.clear();
    state().openings.clear();
    state().closings = 0;
}

__attribute__((format(printf, 2, 0))) void record(int priority, const char* format, va_list arguments) {
    std::array<char, 4096> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    const std::lock_guard<std::mutex> guard(state().lock);
    if (state().capturing) {
        state().records.push_back({priority, text.data()});
    }
}

}  // namespace

// These stand in for the C library's functions of the same names in the whole test program.
extern "C" {

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record(priority, format, arguments);
    va_end(arguments);
}

// What syslog becomes when the compiler adds bounds checks. Its name is the C library's.
void __syslog_chk(int priority, int flag, const char* format, ...) __attribute__((format(printf, 3, 4)));
void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record(priority, format, arguments);
    va_end(arguments);
}

void openlog(const char* identity, int options, int facility) {
    const std::lock_guard<std::mutex> guard(state().lock);
    if (state().capturing) {
        state().openings.push_back({identity == nullptr ? "" : identity, identity, options, facility});
    }
}

void closelog() {
    const std::lock_guard<std::mutex> guard(state().lock);
    if (state().capturing) {
        ++state().closings;
    }
}

}  // extern "C"

namespace wpp_test {

SyslogCapture::SyslogCapture() {
    setCapturing(true);
}

SyslogCapture::~SyslogCapture() {
    setCapturing(false);
}

std::vector<SyslogCapture::Record> SyslogCapture::records() const {
    const std::lock_guard<std::mutex> guard(state().lock);
    return state().records;
}

std::vector<SyslogCapture::Opening> SyslogCapture::openings() const {
    const std::lock_guard<std::mutex> guard(state().lock);
    return state().openings;
}

std::size_t SyslogCapture::closings() const {
    const std::lock_guard<std::mutex> guard(state().lock);
    return state().closings;
}

bool SyslogCapture::contains(int priority, const std::string& part) const {
    const std::vector<Record> all = records();
    return std::any_of(all.begin(), all.end(), [&](const Record& entry) {
        return entry.priority == priority && entry.text.find(part) != std::string::npos;
    });
}

}  // namespace wpp_test
