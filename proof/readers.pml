/* Model 2 of 3: two threads configure syslog-ng. docs/proof.md explains it.
 *
 * The event thread handles changes, the polling thread handles terminals. Both read the settings, then apply
 * them. The counter settings_read keeps an old reading of the polling thread from being in force at the end.
 * Assumed is what model 1 shows: after each commit the event thread handles its field, and after a failure it
 * does so again.
 *
 * Values are not counted. A bit of a copy says whether it is what the original says now.
 *
 * Each #ifdef is a mistake or shows a limit. scripts/proof makes it (-DNAME) and expects a counterexample. */

/* The settings are two records, read by one statement each. The third part is the table of open terminals. */
#define SETTINGS 3
#define TERMINALS 4

byte in_file;
byte in_force; /* what syslog-ng has loaded */
bit due = 1;   /* config_change; at first, start_up */
bit moved;     /* settings_read is no longer what the polling thread saw */
bit locked;    /* the configurator's mutex */
bit following = 1; /* the polling thread has not ended */
bit calm;      /* nothing fails or changes any more */

/* What each thread has read, and the text it has generated. */
byte event_read, event_text;
byte pts_read, pts_text;

/* Every copy is out of date. */
inline changed(parts) {
    in_file = in_file & ~(parts);
    in_force = in_force & ~(parts);
    event_read = event_read & ~(parts);
    event_text = event_text & ~(parts);
    pts_read = pts_read & ~(parts);
    pts_text = pts_text & ~(parts)
}

/* Commits. The label makes a run without end after them an error. */
active proctype writer() {
    byte records;
progress_until_calm:
    do
    :: atomic { select (records : 1 .. SETTINGS); changed(records); due = 1; records = 0 }
    :: calm = 1; break
    od
}

/* LogConfigService::get_full_syslog_config */
inline read(settings) {
    settings = 1;
    d_step { true -> settings = settings | 2 }
}

/* SyslogConfigurator::apply_new_config */
inline apply(settings, text, may_fail, result) {
#ifndef NO_MUTEX
    atomic { !locked -> locked = 1 };
#endif
    text = settings | TERMINALS;
    result = 0;
    if
    :: in_file = text;
        if
        :: d_step { true -> in_force = in_file; result = 1 }
        :: !calm && may_fail
        fi
    :: !calm && may_fail
    fi;
    atomic { true -> text = 0; locked = 0 }
}

/* LogConfigService::update_syslog_configurator. The launcher calls it again after a failure. */
active proctype event_thread() {
    bit applied;
end_waiting:
    do
    :: due ->
        due = 0;
#ifdef COUNTED_BEFORE_READING
        moved = 1;
#endif
        if
        :: read(event_read)
        :: !calm -> due = 1;
            goto end_waiting
        fi;
#if !defined(COUNTED_BEFORE_READING) && !defined(COUNTED_AFTER_APPLYING) && !defined(NOT_COUNTED)
        moved = 1;
#endif
        apply(event_read, event_text, true, applied);
#ifdef COUNTED_AFTER_APPLYING
        moved = 1;
#endif
#ifndef FAILURE_FORGOTTEN
        due = due || !applied;
#endif
        atomic { true -> applied = 0; event_read = 0 }
    od
}

/* In the code nothing keeps a repetition from failing: see docs/proof.md. */
#ifdef REPETITION_FAILS
#define may_fail true
#else
#define may_fail !repeating
#endif

/* LogConfigService::update_pts */
active proctype polling_thread() {
    bit applied;
    bit repeating;
end_waiting:
    do
    :: !calm ->
again:
#ifndef LOADED_AFTER_READING
        moved = 0;
#endif
        if
#ifdef REPEATED_WITHOUT_READING
        :: repeating
        :: !repeating -> read(pts_read)
#else
        :: read(pts_read)
#endif
        :: !calm && may_fail -> break
        fi;
#ifdef LOADED_AFTER_READING
        moved = 0;
#endif
#ifdef COMPARED_BEFORE_APPLYING
        if
        :: moved -> goto again
        :: !moved
        fi;
#endif
#ifndef TERMINAL_RECORDED_LAST
        atomic { !locked -> changed(TERMINALS) };
#endif
        apply(pts_read, pts_text, may_fail, applied);
#ifdef TERMINAL_RECORDED_LAST
        atomic { !locked -> changed(TERMINALS) };
#endif
#ifdef RESULT_LOOKED_AT_FIRST
        if
        :: !applied -> break
        :: applied
        fi;
#endif
        if
#if !defined(NOT_COMPARED) && !defined(COMPARED_BEFORE_APPLYING)
        :: moved -> repeating = 1;
            goto again
        :: !moved && !applied -> break
        :: !moved && applied
#else
        :: !applied -> break
        :: applied
#endif
        fi;
        atomic { true -> applied = 0; repeating = 0; pts_read = 0 }
    :: calm -> goto ended
    od;
    following = 0; /* it ends at its first error */
ended:
    skip
}

active proctype in_the_end() {
    timeout ->
        assert(!due && !locked);
        assert((in_file & SETTINGS) == SETTINGS);
        assert((in_force & SETTINGS) == SETTINGS);
        assert(!following || (in_file & in_force & TERMINALS))
}
