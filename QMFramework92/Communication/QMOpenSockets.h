#pragma once

#include <map>
#include <vector>

#include "Foundation/QMDescriptor.h"
#include "Foundation/QMSync.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// The open sockets of a stream, owned here so that one thread can shut them down while another is blocked
/// in a call on one of them.
///
/// Synchronised by itself: each operation holds the set's own lock, which is a leaf (nothing is called back
/// under it) and is never held across a blocking call.
class QMOpenSockets : private QMUncopyable {
public:
    /// Makes room for the next socket, so that its adopt needs no memory. @return false when there is none.
    bool reserve();
    /// Takes over an open socket. @return its number.
    int adopt(QMDescriptor socket);
    /// Closes one socket; does nothing for a number that is not in the set.
    void close(int socket);
    void closeAll();

    bool contains(int socket);
    /// The numbers in ascending order.
    std::vector<int> list();
    /// The same, behind what is in `numbers`.
    void appendTo(std::vector<int>& numbers);

    /// Ends both directions of every socket, so that whoever blocks on one returns. They stay open and owned.
    void shutdownAll();

    /// Frees whoever blocks on a socket and leaves the rest as it is: a blocked read ends after what has
    /// arrived, a blocked send ends, and a peer that reads still gets what is sent to it.
    void releaseBlocked();

private:
    using Sockets = std::map<int, QMDescriptor>;

    static Sockets::node_type makeNode();

    QMSync lock;
    Sockets sockets QM_GUARDED_BY(lock);
    Sockets::node_type spare QM_GUARDED_BY(lock);
};
