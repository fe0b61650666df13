/* Model 1 of 3: from a commit to the outputs. docs/proof.md explains it.
 *
 * Writers commit to the database, ring the doorbell and may be killed at any step. The daemon follows the
 * journal and delivers lists of fields. Its steps may fail, it may be killed at any step, and it may be told
 * to start a new cycle. All this happens any number of times, until it is calm. Then the daemon comes to rest
 * and each output is what the database says.
 *
 * Values and sequence numbers are not counted. For each field one bit says whether its output is what the
 * database says, and one whether what the daemon has read is. A commit of the field clears both. The journal
 * is known by what a reader at the feed's position can learn from it.
 *
 * Each #ifdef is a mistake. scripts/proof makes it (-DNAME) and expects a counterexample. */

#ifndef WRITERS
#define WRITERS 2
#endif
#ifndef FIELDS
#define FIELDS 2 /* 0: read when it is applied (syslog-ng, the kernel); others: before anything is applied (modules) */
#endif
#define EVERY_FIELD ((1 << FIELDS) - 1)

/* The database. Sets of fields are bits. */
byte news;          /* the fields of the journal's entries after the feed's position */
bit reaches_back = 1;  /* the journal still has the entry at the position */
bit same_content = 1;  /* the database is the one that the position belongs to */
bit locked;         /* by BEGIN IMMEDIATE */
byte unheard;       /* committed, doorbell still open */

byte in_step;       /* the outputs that are what the database says */
byte read_now;      /* the fields of which the daemon has read what the database says */

/* The feed. */
bit watched;
bit event;          /* in the inotify queue */

/* The launcher. */
bit ask;            /* the feed, now or at the end of its rest */
byte list;          /* being delivered */
byte alone;         /* of a list that failed: each to be delivered alone */
byte retry;         /* failed alone: to be delivered again some time */
bit launched;       /* signals have an effect */
bit stop;

bit killed;         /* the daemon; it notices at its next step */
bit calm;           /* nothing fails, dies or changes any more */
byte i;

#define has(set, field) (((set) >> (field)) & 1)
#define lowest(set) ((set) & -(set))
#define is_single(set) ((set) == lowest(set))

/* The kernel queues an event when a descriptor is closed, whoever closes it. */
inline ring() { event = event || watched }

/* ------------------------------------------------------------------------------------------------ writers */

/* Settings and journal entries appear at once. Pruning takes any number of old entries; the newest stay. */
inline commit() {
    select (i : 1 .. EVERY_FIELD);
    in_step = in_step & ~i;
    read_now = read_now & ~i;
    if
    :: news = news | i
    :: news = i; reaches_back = 0
    fi;
    i = 0;
    locked = 0
}

/* Other values, in a journal that looks as if nothing had happened or reaches back to nowhere. */
inline restore() {
    same_content = 0;
    in_step = 0;
    read_now = 0;
    if
    :: news = 0; reaches_back = 1
    :: reaches_back = 0
    fi
}

active [WRITERS] proctype writer() {
    do
    :: atomic { !calm && !locked -> locked = 1 };
        /* The doorbell is open. */
#if defined(RING_BEFORE_COMMIT)
        atomic { true -> ring() };
        atomic { true -> commit() }
#elif defined(RING_BY_CALL)
        if
        :: atomic { true -> commit(); unheard++ };
            if
            :: atomic { true -> ring() }
            :: !calm
            fi;
            unheard--
        :: atomic { !calm -> locked = 0 }
        fi
#else
        if
        :: atomic { true -> commit(); unheard++ };
            /* The writer closes the doorbell, or the kernel does after a kill. */
            atomic { true -> ring(); unheard-- }
        :: atomic { !calm -> locked = 0 }; /* killed: rolled back */
            atomic { true -> ring() }
        fi
#endif
    :: atomic { !calm && !locked -> restore(); unheard++ };
        atomic { true -> ring(); unheard-- } /* by closing the database */
    :: calm -> break
    od
}

/* ------------------------------------------------------------------------------------------------- daemon */

/* JournalFeed::watch_files, of a new instance */
inline arm_watch() {
    d_step { watched = 1; event = 0 }
}

/* JournalFeed::remember */
inline remember() {
    news = 0;
    reaches_back = 1;
    same_content = 1
}

#if defined(PRUNED_IS_EMPTY)
#define position_holds (same_content)
#elif defined(RESTORE_UNSEEN)
#define position_holds (reaches_back)
#else
#define position_holds (reaches_back && same_content)
#endif

/* ChangeQueue::add */
inline add() {
#ifdef SUPERSEDES_EVERY_RETRY
    retry = 0
#else
    retry = retry & ~list
#endif
}

inline read(fields) {
    d_step { true -> read_now = read_now | (fields) }
}

/* The output is what was read. It may be older than the database by now, or newer than the output before. */
inline apply(fields) {
    d_step { true -> in_step = (in_step & ~(fields)) | (read_now & (fields)) }
}

/* What ends with a cycle, and with the process. */
inline forget_everything() {
    watched = 0; event = 0; ask = 0; list = 0; alone = 0; retry = 0; launched = 0; stop = 0; read_now = 0;
    remember()
}

active proctype daemon() {
    byte f;
#ifdef OUTPUTS_KEPT_AT_A_NEW_CYCLE
    bit not_first;
#endif
new_cycle:
    {
        atomic { true -> forget_everything(); f = 0 };
        /* CfgDbWrapper */
#if defined(POSITION_BEFORE_WATCH)
        d_step { true -> remember() };
        arm_watch();
        read(EVERY_FIELD & ~1);
#elif defined(READ_BEFORE_WATCH)
        d_step { true -> remember() };
        read(EVERY_FIELD & ~1);
        arm_watch();
#elif defined(READ_BEFORE_POSITION)
        arm_watch();
        read(EVERY_FIELD & ~1);
        d_step { true -> remember() };
#else
        arm_watch();
        d_step { true -> remember() };
        /* generate_zlog_config_files */
        read(EVERY_FIELD & ~1);
#endif
#ifdef OUTPUTS_KEPT_AT_A_NEW_CYCLE
        if
        :: not_first
        :: else -> not_first = 1;
            apply(EVERY_FIELD & ~1)
        fi;
#else
        apply(EVERY_FIELD & ~1);
#endif
        launched = 1;
        /* LogConfigService::start_up */
        read(1);
        apply(1);
#ifndef NOT_ASKED_AT_FIRST
        ask = 1; /* EventLoop::begin_serving */
#endif

serving:
end_waiting:
        do
        :: stop -> goto new_cycle
        :: d_step { alone -> list = lowest(alone); alone = alone - list }; break
        :: d_step { !alone && retry -> list = lowest(retry) }; break
        :: d_step { !alone && retry && !is_single(retry) -> list = retry - lowest(retry); list = lowest(list) }; break
        :: d_step { !alone && !ask && event -> ask = 1 }
        :: !alone && ask ->
            /* JournalFeed::next */
#ifndef DRAIN_AFTER_READING
            event = 0; /* drain */
#endif
#ifdef POSITION_MOVED_BEFORE_A_FAILURE
            if
            :: d_step { !calm -> remember() };
                goto serving
            :: true
            fi;
#endif
            if
            :: !calm -> /* the database cannot be read; the feed rests */
#ifdef FAILED_FEED_FORGOTTEN
                ask = 0;
#endif
                goto serving
            :: d_step { position_holds -> list = news; ask = list != 0; remember() }
            :: d_step { !position_holds -> skip };
                d_step { true -> list = EVERY_FIELD; ask = 1; remember() }
            fi;
#ifdef DRAIN_AFTER_READING
            event = 0;
#endif
            if
            :: d_step { list -> add() }; break
            :: !list
            fi
        /* Whenever nothing is under way, what is not in step has its retry: a field that always fails costs the
         * others nothing. */
        :: atomic { !calm && !stop && !ask && !event && !alone && !unheard -> assert((in_step | retry) == EVERY_FIELD) }
        od;

        /* LogConfigService::config_change */
        if
        :: list & ~1 -> read(list & ~1)
        :: !calm && (list & ~1) -> goto failed
        :: !(list & ~1)
        fi;
        do
        :: f < FIELDS && has(list, f) ->
            if
            :: f == 0 -> read(1)
            :: f > 0
            :: !calm -> goto failed
            fi;
            if
            :: apply(1 << f); f++
            :: !calm -> goto failed
            fi
        :: f < FIELDS && !has(list, f) -> f++
        :: f == FIELDS -> break
        od;
        atomic { true -> retry = retry & ~list; list = 0; read_now = 0; f = 0 };
        goto serving;
failed:
        /* ChangeQueue::failed */
        atomic {
            if
#ifdef FAILED_FIELD_DROPPED
            :: is_single(list)
#else
            :: is_single(list) -> retry = retry | list
#endif
#if defined(FAILED_LIST_DROPPED)
            :: else
#elif defined(ONLY_FIRST_REDELIVERED)
            :: else -> alone = lowest(list)
#elif defined(ONLY_FAILED_REDELIVERED)
            :: else -> retry = retry | (1 << f)
#else
            :: else -> alone = list
#endif
            fi;
            list = 0;
            read_now = 0;
            f = 0
        };
        goto serving
    } unless {
        atomic { killed -> killed = 0 };
        goto new_cycle
    }
}

/* What happens to the daemon, as long as anything happens. The label makes a run without end after that an
 * error. */
active proctype fate() {
progress_until_calm:
    do
    :: d_step { !killed -> killed = 1; forget_everything() }
    :: d_step { launched && !stop -> stop = 1 }
    :: calm = 1; break
    od
}

/* -------------------------------------------------------------------------------------------------- claim */

active proctype in_the_end() {
    timeout ->
        assert(in_step == EVERY_FIELD);
        assert(!locked && !unheard && !alone && !retry && !list && !killed)
}
