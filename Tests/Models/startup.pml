/*
 * The opening of the four sockets, from the first server to the wait for command 1.
 *
 * Stands for:  the main thread, the threads of the four streams, the controller and the Bluetooth process.
 * Abstracts:   WppReceiver/private/Core/WppReceiver.cpp (run), LibWpp/private/WppLocalSocketClientStream.cpp
 *              (open), QMFramework92/Communication/private/QMLocalSocketClientStream.cpp (connectOnce,
 *              setConnected) and QMLocalSocketServerStream.cpp (MainProc, dropClient),
 *              WppReceiver/private/Proxy/QmcWirelessProjectionService.cpp (receiveTerminate, waitExit).
 * The peers:   each comes up at any time or never. It listens first or connects first, the controller may send
 *              command 1 and wait for its answer before it listens, and one of them may die at any step and come
 *              back. A peer tries again until it is connected.
 * Checked:     no deadlock; the main thread reaches its wait when both peers listen for good; a command 1 is
 *              handled and answered however early it comes; it is never lost, also before the wait.
 * Left out:    time (a pause between two attempts is a step), all other messages, a name that cannot be bound,
 *              a thread or descriptor that is not to be had, who accepts (the system connects as soon as the
 *              peer's queue has room), a connected peer that dies (a synchronous client does not come back).
 *
 * Faults:      1 the control client opens before the control server
 *              2 a client is armed (its signal forgotten) after its thread has started
 *              3 the signal of a connection comes ahead of what it announces
 *              4 a client does not try again
 *              5 the main thread forgets earlier signals of its event when it begins to wait
 *              6 a server ends with its peer
 */
#ifndef FAULT
#define FAULT 0
#endif

#define CONTROL   0
#define BLUETOOTH 1

mtype = { Command1, PeerClosed };

/* The receiver. */
bool serverStarted[2];
bool serverListens[2];
bool clientStarted[2];
bool connectionMade[2];
byte connectedEvent[2]; /* an event counts its signals */
byte exitEvent;
bool atWait;   /* the main thread has come to the wait for command 1 ... */
bool pastWait; /* ... and has got it */
bool handled;  /* a command 1 */

/* What the peers show of themselves. */
bool aPeerIsAway; /* for good */
bool peerListens[2];
bool commandSent;
bool mayDie = true; /* one death, of either */
chan toServer[2] = [3] of { mtype };
chan reply = [1] of { bit };

inline openServer(link) {
    serverStarted[link] = true /* its thread binds and listens in its own time */
}

inline arm(link) {
    connectedEvent[link] = 0;
    connectionMade[link] = false
}

inline openClient(link) {
#if FAULT == 2
    clientStarted[link] = true;
    arm(link);
#else
    d_step { arm(link); clientStarted[link] = true };
#endif
    do
    :: connectionMade[link] -> break
    :: else -> atomic { connectedEvent[link] > 0 -> connectedEvent[link]-- }
    od
}

proctype Main() {
#if FAULT == 1
    openClient(CONTROL);
    openServer(CONTROL);
    openServer(BLUETOOTH);
#else
    openServer(CONTROL);
    openServer(BLUETOOTH);
    openClient(CONTROL);
#endif
    openClient(BLUETOOTH);
    atWait = true;
#if FAULT == 5
    exitEvent = 0;
#endif
end_wait:
    atomic { exitEvent > 0 -> exitEvent-- };
    pastWait = true
}

proctype ServerStream(byte link) {
end_not_started:
    serverStarted[link];
    serverListens[link] = true;
end_serving:
    do
    :: atomic { toServer[link]?Command1 -> exitEvent++; handled = true };
        reply!1
    :: toServer[link]?PeerClosed ->
#if FAULT == 6
        serverListens[link] = false;
        break
#else
        skip
#endif
    od
}

proctype ClientStream(byte link) {
end_not_started:
    clientStarted[link];
    do
    :: peerListens[link] -> break
#if FAULT == 4
    :: !peerListens[link] -> goto ended
#else
    :: !peerListens[link] -> skip /* 100 ms later again */
#endif
    od;
#if FAULT == 3
    connectedEvent[link]++;
    connectionMade[link] = true;
#else
    connectionMade[link] = true;
    connectedEvent[link]++;
#endif
ended:
    skip
}

/* A peer may die wherever it waits, and between any two steps. */
#define OR_DIE :: mayDie -> goto dead

inline connectToServer(link) {
    if
    :: serverListens[link] -> connected = true
    OR_DIE
    fi
}

inline startListening(link) {
    if
    :: peerListens[link] = true
    OR_DIE
    fi
}

/* A controller's life holds one command 1 at most. */
inline sendCommand1() {
    if
    :: atomic { toServer[CONTROL]!Command1 -> commandSent = true }
    OR_DIE
    fi;
    if
    :: reply?_
    OR_DIE
    fi
}

proctype Peer(byte link) {
    bool connected = false;
up:
    if
    :: startListening(link); connectToServer(link)
    :: connectToServer(link); startListening(link)
    :: link == CONTROL -> connectToServer(link); sendCommand1(); startListening(link); goto end_at_work
    :: aPeerIsAway = true; goto end_away
    fi;
    if
    :: link == CONTROL -> sendCommand1()
    :: goto end_at_work
    fi;
end_at_work:
    if
    OR_DIE
    fi;
dead:
    atomic {
        peerListens[link] = false;
        mayDie = false;
        if
        :: connected && link == CONTROL -> connected = false; toServer[link]!PeerClosed
        :: !connected || link == BLUETOOTH
        fi;
        goto up
    };
end_away:
    skip
}

init {
    atomic {
        run Main();
        run ServerStream(CONTROL);
        run ServerStream(BLUETOOTH);
        run ClientStream(CONTROL);
        run ClientStream(BLUETOOTH);
        run Peer(CONTROL);
        run Peer(BLUETOOTH)
    }
}

/* Under weak fairness. */
ltl reaches_its_wait { <> (atWait || aPeerIsAway) }
ltl handles_every_command { [] (commandSent -> <> handled) }
ltl loses_no_command { [] (handled -> <> (pastWait || aPeerIsAway)) }

/* Each of these must be possible. */
#define reach(what) ([] !(what))
ltl can_serve_both_peers { reach(atWait && peerListens[CONTROL] && peerListens[BLUETOOTH]) }
ltl can_hear_a_command_before_it_is_connected { reach(handled && !connectionMade[CONTROL]) }
ltl can_end { reach(pastWait) }
ltl can_be_connected_before_it_listens { reach(connectionMade[CONTROL] && !serverListens[CONTROL]) }
