/*
 * replacement.pml - how runvekcred replaces keystore.conf, as a model for Spin.
 *
 * Two runs replace the file, a program reads it, a stranger puts something at ".bak", each run may
 * be ended by a signal or killed at every step, and the power may fail at every moment. Most steps
 * of a run may fail. Spin goes through all orders in which that can happen.
 *
 * A label of `writer` is a system call and what it is for; a number behind it only tells two labels
 * apart. replacement_model_test.py compares the labels, in order, with the calls of real runs.
 *
 * The changes of the directory reach the disk in their order, as a journal has it. The bytes of a
 * file reach it at any time, and with fdatasync at the latest.
 *
 *   -DUNLOCKED  a run goes on without the lock, as it does after 10 seconds; the text can be lost
 *   -DPRESENT   keystore.conf is promised to be there at every moment, which it is not: it is
 *               absent between unlink and rename, and stays so when the run is killed there
 */
#define RUNS 2
#define NONE 255 /* no file, or nobody */

/* The files. */
#define OLD 0
#define FOREIGN 1
#define NEW(run) (2 + run)
#define FILES 4

/* The content of a file: whole or not, and which runs had a part in it. */
#define NOTHING 0
#define WHOLE 1
#define BY(run) (2 << run)

byte conf = OLD;
byte bak = NONE;
byte content[FILES];

byte confOnDisk = OLD;
byte bakOnDisk = NONE;
byte contentOnDisk[FILES];

byte lock = NONE;
bool heldBack[RUNS];  /* signals wait */
bool signalled[RUNS]; /* SIGTERM and its kin */
bool killed[RUNS];    /* SIGKILL */
bool succeeded[RUNS]; /* ended with status 0 */
bool powerIsOff;

/* Where the text is: in keystore.conf, or in ".bak" while that is absent. */
#define TEXT (conf != NONE -> conf : bak)
#define IS_SAFE (TEXT != NONE && content[TEXT] & WHOLE)
#define HAS_RESULT(run) (!succeeded[run] || content[TEXT] & BY(run))

/* Whether another run may have changed something meanwhile. */
#ifdef UNLOCKED
#define CAME_BETWEEN true
#else
#define CAME_BETWEEN false
#endif

#define UNLOCK lock = (lock == i -> NONE : lock)

/* Only a kill or a power cut leaves a new ".bak" beside keystore.conf. */
#define HAS_TIDIED_UP (bak != NEW(i) || conf == NONE)

/* The end of a run: no signal meets it any more. */
#define END_RUN                                                                                    \
    UNLOCK;                                                                                        \
    input = 0;                                                                                     \
    text = 0;                                                                                      \
    renamed = false;                                                                               \
    heldBack[i] = false;                                                                           \
    signalled[i] = false;                                                                          \
    killed[i] = true

proctype writer(byte i) {
    byte input;
    byte text;
    bool renamed;
openat_directory:
    skip;
    {
        skip; /* no label may be first here */
flock_directory:
        atomic {
            if
            :: lock == NONE -> lock = i
#ifdef UNLOCKED
            :: skip
#endif
            fi
        };
        /* The first look, before anything is touched. */
openat_conf:
        if :: conf == NONE -> goto ended :: conf != NONE fi;
read_conf:
        skip;
close_conf:
        skip;
rt_sigprocmask_BLOCK:
        heldBack[i] = true;
openat_conf_2:
        atomic {
            if :: conf == NONE -> goto failed :: conf != NONE -> input = conf fi
        };
unlinkat_bak:
        if :: bak = NONE :: bak == FOREIGN -> goto failed fi;
openat_bak:
        atomic {
            if :: bak == NONE -> bak = NEW(i) :: bak != NONE -> goto failed :: goto failed fi
        };
fallocate_bak:
        if :: skip :: goto failed fi;
        /* The next three for each block; the file is whole with the last. */
rt_sigpending:
        if :: signalled[i] -> goto failed :: !signalled[i] fi;
read_conf_2:
        if :: text = content[input] :: goto failed fi;
write_bak:
        if :: content[NEW(i)] = text | BY(i) :: goto failed fi;
fdatasync_bak:
        if :: contentOnDisk[NEW(i)] = content[NEW(i)] :: goto failed fi;
ftruncate_bak:
        skip;
close_bak:
        skip;
close_conf_2:
        skip;
unlinkat_conf:
        atomic {
            assert(CAME_BETWEEN || conf == input);
            conf = NONE
        };
renameat_bak:
        atomic {
            if
            :: assert(bak == NEW(i) && conf == NONE);
               conf = bak;
               bak = NONE;
               renamed = true
            :: skip /* status 99: the text stays under .bak */
            fi
        };
fsync_directory:
        atomic {
            confOnDisk = conf;
            bakOnDisk = bak
        };
rt_sigprocmask_UNBLOCK:
        heldBack[i] = false;
close_directory:
        atomic {
            assert(CAME_BETWEEN || !renamed || (conf != NONE && content[conf] & BY(i)));
            UNLOCK;
            goto ended
        };

failed:
ftruncate_bak_2:
        skip;
close_bak_2:
        skip;
close_conf_3:
        skip;
unlinkat_bak_2:
        if
        :: bak = NONE
        :: bak == FOREIGN /* cannot be unlinked */
        fi;
rt_sigprocmask_UNBLOCK_2:
        heldBack[i] = false;
close_directory_2:
        UNLOCK;

ended:
        atomic {
            assert(HAS_TIDIED_UP);
            succeeded[i] = renamed;
            END_RUN
        }
    } unless {
        atomic {
            powerIsOff || killed[i] || (signalled[i] && !heldBack[i]);
            assert(powerIsOff || killed[i] || HAS_TIDIED_UP);
            END_RUN
        }
    }
}

/* A program that opens keystore.conf at any time, and reads it as late as it likes. */
proctype reader() {
    byte file;
    {
        atomic {
            if :: conf == NONE -> goto absent :: conf != NONE -> file = conf fi
        };
        assert(content[file] & WHOLE);
absent:
        skip
    } unless {
        powerIsOff
    }
}

proctype stranger() {
end:
    atomic {
        bak == NONE && !powerIsOff -> bak = FOREIGN
    }
}

proctype signals() {
end:
    do
    :: atomic { !powerIsOff && !killed[0] && !signalled[0] -> signalled[0] = true }
    :: atomic { !powerIsOff && !killed[1] && !signalled[1] -> signalled[1] = true }
    :: atomic { !powerIsOff && !killed[0] -> killed[0] = true }
    :: atomic { !powerIsOff && !killed[1] -> killed[1] = true }
    od
}

proctype disk() {
end:
    do
    :: atomic {
            !powerIsOff -> confOnDisk = conf;
            bakOnDisk = bak
       }
    :: atomic { !powerIsOff -> contentOnDisk[NEW(0)] = content[NEW(0)] }
    :: atomic { !powerIsOff -> contentOnDisk[NEW(1)] = content[NEW(1)] }
    od
}

proctype power() {
    atomic {
        powerIsOff = true;
        conf = confOnDisk;
        bak = bakOnDisk;
        content[NEW(0)] = contentOnDisk[NEW(0)];
        content[NEW(1)] = contentOnDisk[NEW(1)]
    }
}

/* What holds in every state, that after a power cut among them. */
proctype promises() {
end:
    if
    :: atomic { conf != NONE && !(content[conf] & WHOLE) -> assert(false) }
    :: atomic { !IS_SAFE -> assert(false) }
    :: atomic { !(HAS_RESULT(0) && HAS_RESULT(1)) -> assert(false) }
#ifdef PRESENT
    :: atomic { conf == NONE -> assert(false) }
#endif
    fi
}

init {
    atomic {
        content[OLD] = WHOLE;
        contentOnDisk[OLD] = WHOLE;
        if :: bak = FOREIGN; bakOnDisk = FOREIGN :: skip fi;
        run promises();
        run disk();
        run power();
        run signals();
        run stranger();
        run reader();
        run writer(0);
        run writer(1)
    }
}
