/* Model 3 of 3: from a file to the module that reads it. docs/proof.md explains it.
 *
 * The daemon replaces files and tells their modules through the broker. The broker and the daemon may be
 * killed at any step, and each peer finds the next broker in its own time. In the end each module has read
 * its file as it is, unless the daemon's last start has written it: a start tells nobody.
 *
 * Values and numbers are not counted. A bit says whether what a module has read is what its file holds.
 *
 * Each #ifdef is a mistake. scripts/proof makes it (-DNAME) and expects a counterexample. */

#ifndef MODULES
#define MODULES 2
#endif
#ifndef QUEUE
#define QUEUE 3 /* frames that may wait for the broker */
#endif
#define EVERY_MODULE ((1 << MODULES) - 1)
/* Frames are numbered by the module that they tell. Sets of them are bits. */
#define CONFIRMATION 9

#define has(set, member) (((set) >> (member)) & 1)
#define lowest(set) ((set) & -(set))

bit calm;       /* nothing is written, killed or started any more, and the broker is up */
bit broker_up = 1;

byte up_to_date; /* the modules that have read their file as it is */
byte untold;     /* those that the daemon's last start has left without a word: `logctl status` calls them stale */
byte reachable;  /* those whose subscription the broker has */
byte to_read;    /* those that are about to read: told, or just connected */

/* The daemon's endpoint, as the kernel and ZeroMQ see it. */
mtype = { Down, Up, Dead }; /* Dead: the broker is gone, which is not yet noticed */
mtype publisher = Down;
bit subscriber;
chan queue = [QUEUE] of { byte };
bit subscribed; /* the broker has passed the endpoint's own subscription to its publisher */
bit notice;     /* of that, to be taken */
bit withdrawal; /* to be taken, and later than the notice */
bit answer;     /* a confirmation, to be taken */

/* The same endpoint as ZmqIpc sees it. */
bit connected;
bit greeting_due;
bit awaited;    /* a confirmation */
byte kept;      /* Unconfirmed */
byte covered;   /* what the awaited confirmation is about */
bit sent_since; /* the last confirmation was asked for: the next one has another number */

byte to_send;   /* frames that the daemon has still to send, again after an error */
bit killed;     /* the daemon; it notices at its next step */

inline empty_queue() {
    do
    :: nempty(queue) -> queue?_
    :: empty(queue) -> break
    od
}

inline forget_endpoint() {
    publisher = Down; subscriber = 0; subscribed = 0; notice = 0; withdrawal = 0; answer = 0;
    connected = 0; greeting_due = 0; awaited = 0; kept = 0; covered = 0; sent_since = 0; to_send = 0;
    empty_queue()
}

/* The label makes a run without end after all this an error. */
active proctype fate() {
progress_until_calm:
    do
    :: atomic { broker_up -> /* killed */
            broker_up = 0;
            empty_queue();
            reachable = 0;
            to_read = 0; /* what was on its way; a module reads when it connects again */
            subscriber = 0;
            subscribed = 0;
            publisher = (publisher == Up -> Dead : publisher);
            if
            :: answer = 0
            :: answer /* it had left the broker */
            fi
        }
    :: atomic { !broker_up -> broker_up = 1 }
    :: atomic { !killed -> killed = 1; forget_endpoint() }
    :: atomic { broker_up -> calm = 1 }; break
    od
}

active proctype broker() {
    byte frame;
end_waiting:
    do
    :: atomic { broker_up && nempty(queue) ->
            queue?frame;
            if
            :: frame == CONFIRMATION -> answer = subscriber
            :: else -> to_read = to_read | (reachable & (1 << frame))
            fi;
            frame = 0
        }
    od
}

/* The daemon's connections, each in its own time. */
active proctype connections() {
end_waiting:
    do
    :: d_step { publisher == Dead && !killed -> publisher = Down; withdrawal = 1 }
    :: d_step { publisher == Down && !killed && broker_up -> publisher = Up }
    :: d_step { !subscriber && !killed && broker_up -> subscriber = 1 }
    :: d_step { publisher == Up && subscriber && !subscribed -> subscribed = 1; notice = 1; withdrawal = 0 }
    od
}

active [MODULES] proctype module() {
    byte self = 1 << (_pid - 3); /* the first module is process 3 */
end_waiting:
    do
#ifdef READ_BEFORE_SUBSCRIBED
    :: d_step { broker_up && !(reachable & self) -> up_to_date = up_to_date | self; untold = untold & ~self };
        atomic { true -> reachable = (broker_up -> reachable | self : reachable) }
#else
    :: d_step { broker_up && !(reachable & self) -> reachable = reachable | self;
#ifndef NOT_READ_AT_CONNECTION
            to_read = to_read | self
#endif
        }
#endif
    :: d_step { to_read & self ->
            to_read = to_read & ~self; up_to_date = up_to_date | self; untold = untold & ~self }
    od
}

/* ------------------------------------------------------------------------------------------------- daemon */

/* An XPUB socket drops in silence what nobody it knows of has subscribed to. */
inline send_frame(number, was_sent) {
    if
    :: publisher != Up -> was_sent = 1
    :: publisher == Up && !subscribed -> was_sent = 1
    :: publisher == Up && nfull(queue) && (subscribed || number != CONFIRMATION) -> queue!number; was_sent = 1
    :: publisher == Up && full(queue) -> was_sent = 0
    fi
}

inline ask_for_confirmation() {
    send_frame(CONFIRMATION, sent);
    if
    :: sent -> awaited = 1;
        covered = kept;
#ifndef OLD_ANSWER_COUNTS
        answer = answer && !sent_since;
#endif
        sent_since = 0
    :: !sent
    fi
}

/* ZmqIpc::attend_connection. One step: it holds the mutex, and what the others do meanwhile they could as well
 * do before or after. */
inline attend_connection() {
    atomic {
        true ->
        do
        :: notice || withdrawal ->
            greeting_due = greeting_due || notice;
            connected = !withdrawal;
            notice = 0;
            withdrawal = 0
        :: !notice && !withdrawal && greeting_due ->
            /* ZmqIpc::greet */
#ifndef AWAITED_FOR_EVER
            awaited = 0;
            covered = 0;
#endif
#ifdef KEPT_DROPPED_AT_RECONNECT
            kept = 0;
#endif
            sent = 1;
            frame = 0;
            do
            :: sent && frame < MODULES && has(kept, frame) -> send_frame(frame, sent); frame++
            :: sent && frame < MODULES && !has(kept, frame) -> frame++
            :: !sent || frame == MODULES -> break
            od;
#ifdef GREETING_NOT_REPEATED
            greeting_due = 0;
#else
            greeting_due = !sent;
#endif
            if
            :: !sent -> break
            :: sent
            fi
        :: !notice && !withdrawal && !greeting_due && connected && !awaited && kept ->
            ask_for_confirmation();
            if
            :: !sent -> break
            :: sent
            fi
        :: !notice && !withdrawal && !greeting_due && !(connected && !awaited && kept) -> break
        od;
        sent = 0;
        frame = 0
    }
}

/* When something is tried again that the full queue has prevented. A broker that runs empties the queue sooner
 * than that: else a greeting could be interrupted again and again. */
#define has_room (publisher != Up || empty(queue) || (!calm && nfull(queue)))

active proctype daemon() {
    byte frame, next;
    bit sent;
new_cycle:
    {
        atomic { true ->
            forget_endpoint();
            frame = 0; next = 0; sent = 0;
            /* generate_zlog_config_files: tells nobody */
            do
            :: next < MODULES -> up_to_date = up_to_date & ~(1 << next); next++
            :: next < MODULES -> next++
            :: next == MODULES -> break
            od;
            next = 0;
            untold = EVERY_MODULE & ~up_to_date
        };
end_serving:
        do
        /* ZlogConfigFile::apply_new_config */
        :: atomic { !calm && !to_send -> next = 0;
                do
                :: next < MODULES - 1 -> next++
                :: break
                od;
                to_send = 1 << next;
#ifndef TOLD_BEFORE_WRITTEN
                up_to_date = up_to_date & ~to_send;
#endif
                untold = untold & ~to_send;
                next = 0
            }
        /* ZmqIpc::send */
        :: to_send && has_room ->
            attend_connection();
            atomic {
                true ->
                do
                :: to_send != (1 << next) -> next++
                :: to_send == (1 << next) -> break
                od;
                send_frame(next, sent);
                next = 0;
                if
                :: sent ->
#ifndef FORGOTTEN_WHEN_SENT
                    kept = kept | to_send;
#endif
                    covered = covered & ~to_send;
                    sent_since = 1;
#ifdef TOLD_BEFORE_WRITTEN
                    next = to_send;
#endif
                    to_send = 0
                :: !sent
#ifdef OVERFLOW_IGNORED
                    -> to_send = 0
#endif
                fi;
                sent = 0
            };
            attend_connection();
#ifdef TOLD_BEFORE_WRITTEN
            atomic { true -> up_to_date = up_to_date & ~next; next = 0 }
#endif
        /* ZmqIpc::receive */
        :: atomic { answer ->
                answer = 0;
                if
                :: awaited ->
#ifdef CONFIRMS_EVERYTHING
                    kept = 0;
#else
                    kept = kept & ~covered;
#endif
                    covered = 0;
                    awaited = 0
                :: else
                fi
            };
            attend_connection()
        :: notice || withdrawal -> attend_connection()
        :: has_room && (greeting_due || (connected && !awaited && kept)) -> attend_connection()
        od
    } unless {
        atomic { killed -> killed = 0 };
        goto new_cycle
    }
}

active proctype in_the_end() {
    timeout ->
        assert((up_to_date | untold) == EVERY_MODULE);
        assert(!kept && !to_send && !killed)
}
