#pragma once

/// Base that forbids copying. Derive from it privately.
class QMUncopyable {
public:
    QMUncopyable(const QMUncopyable&) = delete;
    QMUncopyable& operator=(const QMUncopyable&) = delete;

protected:
    QMUncopyable() = default;
    ~QMUncopyable() = default;
};
