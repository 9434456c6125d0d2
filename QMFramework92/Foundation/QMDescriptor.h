#pragma once

/// Owner of one file descriptor: closes it when it goes out of scope or takes over another. Move-only.
///
/// It is a value of one thread; it takes no lock and logs nothing. Closing leaves errno as it was.
class QMDescriptor {
public:
    static constexpr int kNone = -1;

    QMDescriptor() = default;
    explicit QMDescriptor(int descriptorToOwn) : descriptor(descriptorToOwn) {}
    QMDescriptor(QMDescriptor&& other) noexcept : descriptor(other.release()) {}
    QMDescriptor& operator=(QMDescriptor&& other) noexcept;
    QMDescriptor(const QMDescriptor&) = delete;
    QMDescriptor& operator=(const QMDescriptor&) = delete;
    ~QMDescriptor() { reset(); }

    /// The descriptor, still owned here; kNone when there is none.
    int get() const { return descriptor; }
    bool isValid() const { return descriptor >= 0; }

    /// Hands the descriptor to the caller, who closes it.
    int release();

    /// Closes what is owned and owns `descriptorToOwn` instead.
    void reset(int descriptorToOwn = kNone);

private:
    int descriptor = kNone;
};

/// Puts /dev/null in the place of each standard descriptor (0 to 2) that the process was started without, so that
/// what is opened later never gets the number of standard output and never receives what is printed there.
/// Called before anything else opens a descriptor. Logs nothing; where /dev/null cannot be opened, the places
/// stay free.
void qm_OccupyStandardDescriptors();
