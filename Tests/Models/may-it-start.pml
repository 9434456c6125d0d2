/*
 * The question whether a phone may start projection (2003), its answer (1008) and its limit of 1000 ms.
 *
 * Stands for:  two phones' threads of the library, each of which asks (known or unknown) or notifies, the
 *              first of them twice, the control stream's thread, and the controller, which acknowledges on one
 *              thread and answers on another.
 * Abstracts:   WppReceiver/private/Core/QmcWifiProjectionProtocolCallbackImpl.cpp (canStartProjection,
 *              replyCanStartProjection), QMFramework92/Foundation/private/QMEvent.cpp (SetEvent, WaitEvent,
 *              Drain), ReceiverLib/private/QuestionQueue.cpp (one question at a time, as the library's
 *              interface says), the send lock of QMFramework92/Communication/private/
 *              QMLocalSocketClientStream.cpp.
 * The answers: each question may be answered before or after it is acknowledged, at any later time, or never,
 *              and out of order; one more answer is to no question at all. The number of a question is the
 *              value of its answer; the device id that an answer carries is not looked at and not modelled.
 * Time:        the limit may be over at any moment, but a wait that has a signal takes it.
 * Checked:     every question ends; no deadlock. A question during which no other answer is handled has its
 *              own answer, if that came in time, and else none; it says "timeout." only when no answer came in
 *              time. No answer reaches one phone while another waits for it. A question that is ended by an
 *              answer to another question is ended by one that came late.
 * By design:   answers carry no number, so one that is late counts for the question that is open then; its
 *              own answer is dropped. An answer that is being handled while the next question begins may also
 *              end that one without an answer, or count without a signal (the can_... claims below).
 * Left out:    the device records' lock, a phone that is dropped while it waits for its turn, the end of the
 *              owner (stop.pml has it), an event with 65536 signals.
 *
 * Faults:      1 signals of earlier answers are not forgotten before a question
 *              2 ... are forgotten after the question is asked
 *              3 the last answer is forgotten after the question is asked
 *              4 the signal comes ahead of the answer
 *              5 two phones ask at once
 *              6 a question waits without limit
 *              7 a question of an unknown phone keeps the turn
 */
#ifndef FAULT
#define FAULT 0
#endif

#define PHONES    2
#define QUESTIONS 3
#define NO_ANSWER 0 /* -5 */
#define STRAY     (QUESTIONS + 1)

mtype = { Question, Notification };

/* QmcWifiProjectionProtocolCallbackImpl. */
byte canStartResult;
byte replyEvent; /* counts its signals */

/* The library's queue of questions. */
byte nextTurn;
byte turn;

/* The two links to the controller. */
bool sendLocked;
chan request = [1] of { mtype, byte };
chan acknowledgement = [1] of { bit };
chan command = [1] of { byte };
chan commandReply = [1] of { bit };
bool owed[QUESTIONS + 2]; /* the answers that the controller may still give */

/* What the checks look at. */
byte asked;                /* questions so far */
byte openQuestion[PHONES]; /* 0: none */
bool disturbed[PHONES];    /* another answer was handled during the open question */
bool arrived[PHONES];      /* its own was, and has signalled */
byte handledAnswer;        /* the one that is being handled, 0: none */
byte answeredInTime;
bool lateCounted;
bool endedForNothing;
bool countedWithoutSignal;
byte finished;

inline notify(kind, number) {
    atomic { !sendLocked -> sendLocked = true; request!kind(number) };
    atomic { acknowledgement?_ -> sendLocked = false }
}

inline takeTurn() {
    d_step { myTurn = nextTurn; nextTurn++ };
    atomic {
#if FAULT != 5
        turn == myTurn ->
#endif
        asked++;
        question = asked
    }
}

inline giveTurnBack() {
    turn++
}

/* A question is open from the moment when the last answer is forgotten. */
inline forgetLastAnswer() {
    d_step {
        canStartResult = NO_ANSWER;
        disturbed[_pid] = (handledAnswer != 0);
        arrived[_pid] = false;
        openQuestion[_pid] = question
    }
}

inline checkResult() {
    /* Where nothing disturbs it, a question has its own answer or none. */
    assert(disturbed[_pid] || canStartResult == question || (timedOut && canStartResult == NO_ANSWER));
    /* Nobody has the answer that another phone waits for. */
    assert(canStartResult == question || canStartResult == NO_ANSWER || canStartResult != openQuestion[1 - _pid]);
    /* Another question's answer is that of an earlier question, or of none. */
    assert(canStartResult <= question || canStartResult == STRAY);
    if
    :: !timedOut && canStartResult == question -> answeredInTime++
    :: !timedOut && canStartResult == NO_ANSWER -> endedForNothing = true
    :: !timedOut && canStartResult != question && canStartResult != NO_ANSWER -> lateCounted = true
    :: timedOut && canStartResult != question && canStartResult != NO_ANSWER -> countedWithoutSignal = true
    :: else
    fi;
    openQuestion[_pid] = 0
}

inline askController() {
#if FAULT != 1 && FAULT != 2
    replyEvent = 0;
#endif
    notify(Question, question);
#if FAULT == 2
    replyEvent = 0;
#endif
#if FAULT == 3
    forgetLastAnswer();
#endif
    if
    :: atomic { replyEvent > 0 -> replyEvent--; timedOut = false }
#if FAULT != 6
    :: atomic { replyEvent == 0 -> assert(!arrived[_pid] || disturbed[_pid]); timedOut = true }
#endif
    fi;
    d_step { checkResult() }
}

inline canStartProjection() {
    takeTurn();
#if FAULT != 3
    forgetLastAnswer();
#endif
    if
    :: askController(); giveTurnBack()
    ::  /* One without a device record is answered at once. */
        openQuestion[_pid] = 0;
#if FAULT != 7
        giveTurnBack()
#endif
    fi
}

active [PHONES] proctype Phone() {
    byte question;
    byte myTurn;
    bool timedOut;
    byte left = 2 - _pid;
    do
    :: left > 0 ->
        left--;
        if
        :: canStartProjection()
        :: notify(Notification, 0)
        fi
    :: else -> break
    od;
    finished++
}

active proctype ControlServerStream() {
    byte value;
end:
    do
    :: atomic {
            command?value ->
            handledAnswer = value;
            if
            :: openQuestion[0] != 0 && openQuestion[0] != value -> disturbed[0] = true
            :: else
            fi;
            if
            :: openQuestion[1] != 0 && openQuestion[1] != value -> disturbed[1] = true
            :: else
            fi
        };
#if FAULT == 4
        replyEvent++;
        canStartResult = value;
#else
        canStartResult = value;
        replyEvent++;
#endif
        atomic {
            handledAnswer = 0;
            if
            :: openQuestion[0] == value -> arrived[0] = true
            :: openQuestion[1] == value -> arrived[1] = true
            :: else
            fi;
            commandReply!1
        }
    od
}

active proctype ControllerAcknowledging() {
    mtype kind;
    byte number;
end:
    do
    :: atomic {
            request?kind(number) ->
            if
            :: kind == Question -> owed[number] = true /* answered at any time from here on */
            :: true                                    /* never */
            fi;
            acknowledgement!1
        }
    od
}

inline answer(number) {
    atomic { owed[number] -> owed[number] = false; command!number };
    commandReply?_
}

active proctype ControllerAnswering() {
    owed[STRAY] = true;
end:
    do
    :: answer(1)
    :: answer(2)
    :: answer(3)
    :: answer(STRAY)
    od
}

/* Under weak fairness. */
ltl every_question_ends { <> (finished == PHONES) }

/* Each of these must be possible. */
#define reach(what) ([] !(what))
ltl can_answer_every_question_in_time { reach(finished == PHONES && answeredInTime == QUESTIONS) }
ltl can_count_a_late_answer { reach(lateCounted) }
ltl can_end_by_an_answer_that_overlaps { reach(endedForNothing) }
ltl can_count_an_answer_without_a_signal { reach(countedWithoutSignal) }
