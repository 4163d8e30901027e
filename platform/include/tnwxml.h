/*
 * tnwxml: the cluster configuration and its policies, read from XML files, as numbers by key path; and new values in a
 * configuration's text.
 *
 * Calls come in the order init, load policy, load configuration, get values, unload configuration, unload policy, term.
 * The state between init and term belongs to the process; the routines lock it, so calls from several threads do not
 * corrupt it, but one init-to-term sequence is meant for one thread. xmllib_check and xmllib_edit keep no state and may
 * run at any time. Results are 64 bits wide; success is a value whose low 32 bits are 0. Binding is by ordinal
 * (import/tnwxml.def). Arguments are judged before the order of calls. A call that fails changes nothing: what was
 * loaded stays loaded, and the call may be made again. No routine throws, none promises to keep the thread's last-error
 * value, and none may be called from DllMain. A call waits for another thread's call, so for its file too; xmllib_check
 * waits for nobody.
 *
 * HOME is the parent of the folder in which tnwxml.dll lies. A file is read as UTF-8, with or without byte order mark,
 * up to 1 MiB and 64 levels of elements; both documents are held in memory, no file stays open.
 */
#ifndef TNWXML_H
#define TNWXML_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned long long XMLLIB_STATUS; /* low 32 bits: a status below */

#define XMLLIB_OK 0u
#define XMLLIB_INVALID_ARGUMENT \
    1u                        /* a null pointer, an unknown type or configuration number, a size that does not fit */
#define XMLLIB_WRONG_ORDER 2u /* the call's predecessor is missing, or the call was made already */
#define XMLLIB_NO_MEMORY 3u
#define XMLLIB_NO_FILE 4u /* the file is missing or cannot be opened or read */
#define XMLLIB_NOT_WELL_FORMED \
    5u /* no XML, cut off, another root or encoding, a DOCTYPE, or over the bounds of size and depth */
#define XMLLIB_BAD_POLICY 6u   /* a policy entry without a usable path, type, range, default or text */
#define XMLLIB_NO_SUCH_KEY 7u  /* the key is neither in the configuration nor in the policy */
#define XMLLIB_NO_NUMBER 8u    /* the value is not a decimal or 0x number of 32 bits */
#define XMLLIB_OUT_OF_RANGE 9u /* the value is outside the policy's range */
#define XMLLIB_KEY_TWICE 10u   /* the configuration holds a key of the policy, or a section around it, twice */

#define XMLLIB_CONFIG_CLUSTER 1u /* HOME/etc/cluster.xml */
#define XMLLIB_TYPE_DWORD 1u     /* a 32-bit number, 4 bytes */
#define XMLLIB_FILE_MAX 1048576u /* bytes of the largest file */

/**
 * Ordinal 1. Starts the sequence.
 * @param lpComponent  name of the caller's component: 1 to 31 letters, digits, '_' or '-'
 * @return XMLLIB_OK; XMLLIB_INVALID_ARGUMENT (null, or no such name); XMLLIB_WRONG_ORDER (a sequence is under way)
 */
XMLLIB_STATUS xmllib_init(const char* lpComponent);

/**
 * Ordinal 2. Ends the sequence and releases whatever it still holds: configuration and policy need not be unloaded
 * first.
 * @return XMLLIB_OK; XMLLIB_WRONG_ORDER (no sequence is under way)
 */
XMLLIB_STATUS xmllib_term(void);

/**
 * Ordinal 4. Reads HOME/etc/policy/COMPONENT.xml: type, range, default, unit and text of each key. One policy at a
 * time.
 * @param lpComponent  name as for xmllib_init; need not be the same
 * @return XMLLIB_OK; XMLLIB_INVALID_ARGUMENT (null, or no such name); XMLLIB_WRONG_ORDER (no init, or a policy is
 * loaded: that one stays); XMLLIB_NO_MEMORY; XMLLIB_NO_FILE; XMLLIB_NOT_WELL_FORMED; XMLLIB_BAD_POLICY. A failing call
 * loads nothing. May block 100 ms: a file that cannot be opened or is not well-formed may just be being saved and is
 * read three times, 50 ms apart.
 */
XMLLIB_STATUS xmllib_load_policy(const char* lpComponent);

/**
 * Ordinal 5. Releases the policy; another one, or the same anew, may be loaded then.
 * @param lpComponent  the name that was loaded, in the same spelling
 * @return XMLLIB_OK; XMLLIB_INVALID_ARGUMENT (null, or no such name); XMLLIB_WRONG_ORDER (no policy of this name is
 *         loaded, or a configuration still is)
 */
XMLLIB_STATUS xmllib_unload_policy(const char* lpComponent);

/**
 * Ordinal 6. Reads the configuration file as a whole. Values are judged by xmllib_get_value, so that the caller's trace
 * names the key that is wrong.
 * @param dwConfig  XMLLIB_CONFIG_CLUSTER
 * @return XMLLIB_OK; XMLLIB_INVALID_ARGUMENT (another number); XMLLIB_WRONG_ORDER (no policy, or a configuration is
 *         loaded: that one stays); XMLLIB_NO_MEMORY; XMLLIB_NO_FILE; XMLLIB_NOT_WELL_FORMED; XMLLIB_KEY_TWICE. A
 * failing call loads nothing and leaves the policy. May block 100 ms, as xmllib_load_policy.
 */
XMLLIB_STATUS xmllib_load_config(DWORD dwConfig);

/**
 * Ordinal 7. Releases the configuration; the policy stays, and a changed file may be loaded anew.
 * @return XMLLIB_OK; XMLLIB_WRONG_ORDER (no configuration is loaded)
 */
XMLLIB_STATUS xmllib_unload_config(void);

/**
 * Ordinal 13. One value by key path, for example "/root/diskperf/log/level". A key that the configuration lacks gets
 * the policy's default. A key of the configuration that the policy does not know has no range.
 * @param lpKey     names of the elements from the root on, each behind a '/'; upper and lower case differ
 * @param dwType    XMLLIB_TYPE_DWORD
 * @param lpValue   receives the value; untouched on failure
 * @param lpdwSize  in: size of the destination, at least 4; out: bytes written, 4; untouched on failure
 * @return XMLLIB_OK; XMLLIB_INVALID_ARGUMENT (a null pointer, another type, a size below 4); XMLLIB_WRONG_ORDER (no
 *         configuration is loaded); XMLLIB_NO_SUCH_KEY (neither file knows it); XMLLIB_NO_NUMBER; XMLLIB_OUT_OF_RANGE.
 *         One refused value keeps no other from being read. Reads no file and waits for nothing but another thread's
 * call.
 */
XMLLIB_STATUS xmllib_get_value(const char* lpKey, DWORD dwType, void* lpValue, DWORD* lpdwSize);

#define XMLLIB_SETTING_MAX 32
#define XMLLIB_KEY_SIZE 96
#define XMLLIB_TEXT_SIZE 160
#define XMLLIB_UNKNOWN_MAX 16

/* One setting as the policy describes it and the file gives it. */
typedef struct XMLLIB_SETTING {
    char  szKey[XMLLIB_KEY_SIZE];   /* whole key path */
    char  szUnit[16];               /* "s", "KiB" or empty */
    char  szHelp[XMLLIB_TEXT_SIZE]; /* one sentence for operators */
    DWORD dwValue;                  /* value in the file, or the default where the file has none or a wrong one */
    DWORD dwDefault;
    DWORD dwMin;
    DWORD dwMax;
    BOOL  bInFile;  /* FALSE: the key is missing and the default holds */
    BOOL  bHex;     /* TRUE: people write this value in hexadecimal */
    BOOL  bRestart; /* TRUE: a new value waits for a restart of the component; FALSE: a reload takes it over */
} XMLLIB_SETTING;

/* The first reason for which a file is refused; of several wrong values the one that stands first in the file. Fields
 * that do not apply are 0 or empty. */
typedef struct XMLLIB_FINDING {
    DWORD dwStatus;                   /* XMLLIB_OK: the file is accepted */
    char  szFile[MAX_PATH * 2];       /* file that is wrong, UTF-8 */
    DWORD dwLine;                     /* 1 based */
    DWORD dwColumn;                   /* 1 based, in bytes */
    char  szKey[XMLLIB_KEY_SIZE];     /* key whose value is wrong */
    char  szValue[64];                /* the value as it stands, cut off where it is longer */
    char  szReason[XMLLIB_TEXT_SIZE]; /* one sentence, for people */
    DWORD dwMin;                      /* allowed range, where a value is wrong */
    DWORD dwMax;
} XMLLIB_FINDING;

/* A key of the component's section that its policy does not know: no reason to refuse the file, often a slip of the
 * pen. */
typedef struct XMLLIB_UNKNOWN {
    char  szKey[XMLLIB_KEY_SIZE]; /* whole key path, cut off where it is longer */
    DWORD dwLine;                 /* 1 based */
    DWORD dwColumn;               /* 1 based, in bytes */
} XMLLIB_UNKNOWN;

typedef struct XMLLIB_REPORT {
    XMLLIB_FINDING finding;
    DWORD          dwSettings; /* entries of setting in use; 0 where the policy cannot be read */
    XMLLIB_SETTING setting[XMLLIB_SETTING_MAX];
    DWORD          dwUnknown; /* unknown keys in all; the first XMLLIB_UNKNOWN_MAX are in unknown */
    XMLLIB_UNKNOWN unknown[XMLLIB_UNKNOWN_MAX];
} XMLLIB_REPORT;

/**
 * Ordinal 14. Reads policy and configuration as the calls above would, keeps nothing, and says all about it.
 * @param lpComponent  policy to check against; name as for xmllib_init
 * @param lpwcFile     configuration file to read; NULL: HOME/etc/cluster.xml
 * @param lpReport     receives the report, whatever the result; must not be NULL
 * @return the finding's status: any of the above but XMLLIB_WRONG_ORDER and XMLLIB_NO_SUCH_KEY. A file whose finding is
 *         XMLLIB_OK gives every value of its policy.
 * May block 100 ms for each of the two files that is being saved.
 */
XMLLIB_STATUS xmllib_check(const char* lpComponent, const WCHAR* lpwcFile, XMLLIB_REPORT* lpReport);

/* One new value. */
typedef struct XMLLIB_CHANGE {
    const char* lpKey;   /* whole key path, one of the policy's */
    const char* lpValue; /* the number as it is to stand in the file: decimal digits, or hexadecimal digits behind 0x */
} XMLLIB_CHANGE;

/**
 * Ordinal 15. The bytes of a configuration file with new values in it; writes no file and keeps nothing. A value that
 * is there is replaced in its place; a key that is missing is put in front of the closing tag of its section, sections
 * that are missing are made around it, indented and with line ends as what stands beside it. All other bytes stay:
 * comments, blanks, line ends, byte order mark, keys that nobody knows. Other values are not judged, so that a wrong
 * one can be mended: whoever writes the bytes to a file checks that file with xmllib_check before it takes the old
 * one's place.
 * @param lpComponent  policy that knows the keys; name as for xmllib_init
 * @param lpwcFile     configuration file to read; NULL: HOME/etc/cluster.xml
 * @param lpChanges    the new values, put in one after the other; must not be NULL
 * @param dwChanges    how many, 0 too: then the bytes are those of the file
 * @param lpText       receives the bytes, no NUL behind them; untouched on failure
 * @param lpdwSize     in: size of the destination, at least XMLLIB_FILE_MAX; out: bytes written; untouched on failure
 * @param lpFinding    receives the reason, whatever the result; szFile is empty where a change is wrong and not a file.
 *                     Must not be NULL
 * @return the finding's status: XMLLIB_OK; XMLLIB_INVALID_ARGUMENT; XMLLIB_NO_MEMORY; XMLLIB_NO_FILE;
 *         XMLLIB_NOT_WELL_FORMED (also: the new text would be larger than XMLLIB_FILE_MAX); XMLLIB_BAD_POLICY;
 *         XMLLIB_NO_SUCH_KEY (the policy does not know the key of a change); XMLLIB_NO_NUMBER, XMLLIB_OUT_OF_RANGE (the
 *         value of a change; XMLLIB_NO_NUMBER with a line: what stands there is no single piece of text and cannot be
 *         replaced); XMLLIB_KEY_TWICE
 * May block 100 ms for each of the two files that is being saved.
 */
XMLLIB_STATUS xmllib_edit(const char* lpComponent, const WCHAR* lpwcFile, const XMLLIB_CHANGE* lpChanges,
                          DWORD dwChanges, char* lpText, DWORD* lpdwSize, XMLLIB_FINDING* lpFinding);

#ifdef __cplusplus
}
#endif

#endif
