/*
 * The end of the process, from command 1 to the return of main.
 *
 * Stands for:  the main thread, the two server streams' threads, the TCP server, the start worker, a
 *              conversation of the library, the controller and the Bluetooth process.
 * Abstracts:   WppReceiver/private/Proxy/QmcWirelessProjectionService.cpp (receiveTerminate, the destructor),
 *              WppReceiver/private/Core: WppReceiver.cpp (run), QmcWifiProjectionProtocol.cpp (the destructor),
 *              WifiProjectionProtocolTcpServer.cpp (stop, serve), QmcStartProjection.cpp (stop, run),
 *              QmcWifiProjectionProtocolCallbackImpl.cpp (canStartProjection), RfcommTransportAdapter.cpp (close),
 *              QMFramework92/Communication/private: QMLocalSocketServerStream.cpp, QMLocalSocketClientStream.cpp
 *              (stopThread, the exchanges), QMLocalSocketStream.cpp (requestStop).
 * Begins:      with a protocol owner at work. Command 1 finds the threads of the owner anywhere: a start
 *              wanted, running or over, a phone at the TCP server that costs a request for the key, a
 *              notification, a question or bytes for the phone under way.
 * The peers:   acknowledge what they are sent (PEERS, below, says who does not), in their own time. The
 *              controller need not read its answers. It may start the protocol again behind its command 1,
 *              which the process hears or does not.
 * Checked:     the process ends, with every thread joined; no deadlock; nobody touches an owner, a library or
 *              a transport that is gone.
 * Left out:    time: one second of grace, a question's second and the 10 s of the TCP server are steps that
 *              may be taken at any moment; the 60 s of a start, so that nothing rests on them; more than one
 *              phone; failing system calls.
 *
 * PEERS:       0 both acknowledge everything
 *              1 the controller is silent and goes away some time; the process ends all the same
 *              2 the controller is silent and stays; the process then need not end
 * Faults:      1 the TCP server is joined before it is woken
 *              2 the TCP server's loop is woken but not told to end
 *              3 the library goes before the start worker
 *              4 the objects behind the callbacks go before the library
 *              5 a stream's thread takes the state lock to look at the state
 *              6 a question waits without limit
 *              7 a Stop returns after its grace without the thread's end
 *              8 the termination event keeps no signal for a later wait
 *              9 a transport is closed without leaving the proxy's observers
 */
#ifndef FAULT
#define FAULT 0
#endif
#ifndef PEERS
#define PEERS 0
#endif

#define CONTROL   0
#define BLUETOOTH 1

mtype = { Terminate, Start, StartProjection };

/* A client stream as those who exchange on it see it. */
bool sendLocked[2];
bool disconnected[2]; /* by a Stop, or an exchange that failed */
bool cutOff[2];       /* by a Stop whose grace is over */
#if PEERS == 0
bool controllerIsSilent;
#else
bool controllerIsSilent = true;
#endif
bool controllerIsGone;

/* A server stream. */
bool stopped[2];
bool threadEnded[2];
bool serverCutOff[2];
bool stateLocked;
chan command = [4] of { mtype };
bool terminateHeard;
bool controllerReads = true; /* its answers, from command 1 on */

byte exitEvent;
#if FAULT == 8
bool mainWaits;
#endif
bool processEnded;

/* The protocol owner, and what is alive of it. */
bool ownerAlive = true;
bool libraryAlive = true;
bool callbacksAlive = true;

bool tcpRuns = true;
bool tcpJoinable = true;
bool tcpEnded;
bool tcpStopping;
bool tcpStopEvent;
bool tcpWoken; /* stays: the wake-up is never read back */
byte phones = 1;

bool workerRuns;
bool workerJoinable;
bool workerEnded;
bool stopRequested;

bool conversationRuns = true;
bool conversationEnded;

/* The RFCOMM transport and the proxy's list of observers. */
bool transportAlive = true;
bool transportClosed;
bool observed = true;
bool subjectLocked;
bool sppMayCome = true;

#if FAULT == 6
bool deleting; /* the thread that hears the answers is busy with it */
#endif

#define lock(l) atomic { !l -> l = true }
#define unlock(l) l = false

/* One request and its answer; the send lock spans both. */
inline exchange(link) {
    lock(sendLocked[link]);
    atomic {
        if
        :: link == BLUETOOTH || !controllerIsSilent -> skip /* acknowledged, or failed at once */
        :: disconnected[link] || cutOff[link] || controllerIsGone
        fi;
        unlock(sendLocked[link])
    }
}

/* RfcommTransportAdapter::close, by whoever comes first. */
inline closeTransport() {
    if
    :: atomic { !transportClosed -> transportClosed = true };
#if FAULT != 9
        lock(subjectLocked);
        observed = false;
        unlock(subjectLocked);
#endif
        exchange(BLUETOOTH)
    :: transportClosed
    fi
}

/* ~WifiProjectionProtocol of the library: its links are dropped, then its threads joined. */
inline deleteLibrary() {
    closeTransport();
    atomic { conversationEnded -> libraryAlive = false; transportAlive = false }
}

inline joinTcpServer() {
    atomic { !tcpJoinable || tcpEnded -> tcpJoinable = false }
}

inline stopTcpServer() {
#if FAULT == 1
    joinTcpServer();
#endif
#if FAULT != 2
    tcpStopping = true;
    tcpStopEvent = true;
#endif
    tcpWoken = true;
    joinTcpServer()
}

inline stopWorker() {
    stopRequested = true;
    atomic { !workerJoinable || workerEnded -> workerJoinable = false; stopRequested = false }
}

inline deleteOwner() {
    if
    :: ownerAlive ->
#if FAULT == 6
        deleting = true;
#endif
        stopTcpServer();
#if FAULT == 3
        deleteLibrary();
        stopWorker();
#elif FAULT == 4
        stopWorker();
        callbacksAlive = false;
        deleteLibrary();
#else
        stopWorker();
        deleteLibrary();
#endif
        d_step { callbacksAlive = false; ownerAlive = false }
    :: else
    fi
}

inline createOwner() {
    if
    :: !ownerAlive ->
        d_step {
            tcpStopping = false;
            tcpStopEvent = false;
            tcpWoken = false;
            transportClosed = false;
            tcpEnded = false;
            conversationEnded = false;
            callbacksAlive = true;
            ownerAlive = true;
            libraryAlive = true;
            transportAlive = true;
            observed = true;
            conversationRuns = true;
            tcpRuns = true;
            tcpJoinable = true
        }
    :: else
    fi
}

/* The one byte; it may have to wait for a controller that does not read. */
inline sendReply() {
    if
    :: controllerReads || !terminateHeard
    :: serverCutOff[CONTROL]
    fi
}

inline stopServer(link) {
    lock(stateLocked);
    if
    :: stopped[link]
    :: else ->
        stopped[link] = true;
        if
        :: threadEnded[link]
        :: !threadEnded[link] -> serverCutOff[link] = true /* the grace is over */
        fi;
#if FAULT != 7
        threadEnded[link]
#endif
    fi;
    unlock(stateLocked)
}

/* Its thread has long ended; an exchange that is under way has its grace, then it is cut off. */
inline stopClient(link) {
    if
    :: lock(sendLocked[link])
    :: sendLocked[link] -> cutOff[link] = true; lock(sendLocked[link])
    fi;
    disconnected[link] = true;
    unlock(sendLocked[link])
}

active proctype Main() {
#if FAULT == 8
    mainWaits = true;
#endif
    atomic { exitEvent > 0 -> exitEvent-- };
    stopServer(CONTROL);
    stopServer(BLUETOOTH);
    stopClient(CONTROL);
    stopClient(BLUETOOTH);
    /* The control service's destructor. */
    deleteOwner();
    assert(threadEnded[CONTROL] && threadEnded[BLUETOOTH]);
    assert(!tcpJoinable && !workerJoinable && !libraryAlive);
    processEnded = true
}

inline setExitEvent() {
#if FAULT == 8
    if
    :: mainWaits -> exitEvent++
    :: else
    fi
#else
    exitEvent++
#endif
}

inline handle(message) {
    if
    :: message == Terminate ->
        terminateHeard = true;
        deleteOwner();
        setExitEvent();
        sendReply()
    :: message == Start ->
        createOwner() /* never answered */
    :: message == StartProjection ->
        if
        :: ownerAlive ->
            stopWorker();
            d_step { workerEnded = false; workerJoinable = true; workerRuns = true }
        :: else
        fi;
        sendReply()
    fi
}

active proctype ControlServerStream() {
    mtype message;
    do
#if FAULT == 5
    :: lock(stateLocked);
        if
        :: stopped[CONTROL] -> unlock(stateLocked); break
        :: else -> unlock(stateLocked)
        fi;
        if
        :: command?message -> handle(message)
        :: stopped[CONTROL]
        fi
#else
    :: stopped[CONTROL] -> break
    :: !stopped[CONTROL] && nempty(command) -> command?message; handle(message)
#endif
    od;
    threadEnded[CONTROL] = true
}

active proctype BluetoothServerStream() {
    do
    :: stopped[BLUETOOTH] -> break
    :: !stopped[BLUETOOTH] && sppMayCome ->
        sppMayCome = false;
        lock(subjectLocked);
        if
        :: observed -> assert(transportAlive) /* its buffer takes the bytes */
        :: else
        fi;
        unlock(subjectLocked)
    od;
    threadEnded[BLUETOOTH] = true
}

active proctype TcpServer() {
end_idle:
    do
    :: atomic { tcpRuns -> tcpRuns = false };
        do
        ::  /* A listening socket is made, phones are accepted. */
            do
            :: tcpWoken -> break
            :: !tcpWoken && phones > 0 ->
                phones--;
                assert(ownerAlive);
                exchange(CONTROL); /* the key */
                assert(ownerAlive && libraryAlive)
            od;
            if
            :: tcpStopEvent -> tcpStopEvent = false
            :: !tcpStopEvent /* 10 s are over */
            fi;
            if
            :: tcpStopping -> break
            :: !tcpStopping
            fi
        od;
        tcpEnded = true
    od
}

active proctype StartWorker() {
end_idle:
    do
    :: atomic { workerRuns -> workerRuns = false };
        assert(ownerAlive && callbacksAlive && libraryAlive);
        if
        :: skip /* the phone answers */
        :: skip; /* it does not */
            stopRequested;
            assert(ownerAlive && libraryAlive);
            closeTransport()
        fi;
        assert(ownerAlive);
        exchange(CONTROL);
        workerEnded = true
    od
}

/* A conversation's thread of the library, in the receiver's callbacks and transport. */
active proctype Conversation() {
end_idle:
    do
    :: atomic { conversationRuns -> conversationRuns = false };
        if
        :: transportClosed
        :: !transportClosed ->
            assert(callbacksAlive && ownerAlive);
            if
            :: exchange(CONTROL) /* a notification */
            :: exchange(CONTROL); /* a question */
#if FAULT == 6
                !deleting; /* until command 1008, which waits behind command 1 */
#endif
                assert(callbacksAlive)
            :: assert(transportAlive); /* bytes for the phone */
                exchange(BLUETOOTH)
            fi;
            transportClosed /* it reads */
        fi;
        /* A loss that the worker caused is reported, one that the library's end caused is not. */
        if
        :: assert(callbacksAlive && ownerAlive); exchange(CONTROL)
        :: skip
        fi;
        conversationEnded = true
    od
}

/*
 * What the controller sends lies in the socket; each command is handled when the thread comes to it, and those
 * behind command 1 not at all when the stop comes first.
 */
init {
    atomic {
        command!StartProjection;
        command!Terminate;
        command!Start;
        command!StartProjection;
        if
        :: controllerReads = false
        :: skip
        fi
    }
}

#if PEERS == 1
active proctype Departure() {
    controllerIsGone = true
}
#endif

/* Under weak fairness. Command 1 always comes. */
ltl ends { <> processEnded }

/* Each of these must be possible. */
#define reach(what) ([] !(what))
ltl can_end_in_order { reach(processEnded && !cutOff[CONTROL] && !serverCutOff[CONTROL]) }
ltl can_end_with_a_second_owner { reach(threadEnded[BLUETOOTH] && ownerAlive) }
ltl can_cut_an_exchange_off { reach(processEnded && cutOff[CONTROL]) }
ltl can_cut_a_reply_off { reach(processEnded && serverCutOff[CONTROL]) }
