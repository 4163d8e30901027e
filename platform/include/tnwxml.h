/*
 * tnwxml: the cluster configuration and its policies, read from XML files, as numbers by key path.
 *
 * Calls come in the order init, load policy, load configuration, get values, unload configuration, unload policy, term.
 * The state between init and term belongs to the process; the routines lock it, so calls from several threads do not
 * corrupt it, but one init-to-term sequence is meant for one thread. xmllib_check keeps no state and may run at any time.
 * Results are 64 bits wide; success is a value whose low 32 bits are 0. Binding is by ordinal (import/tnwxml.def).
 */
#ifndef TNWXML_H
#define TNWXML_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned long long XMLLIB_STATUS; /* low 32 bits: a status below */

#define XMLLIB_OK 0u
#define XMLLIB_INVALID_ARGUMENT 1u /* a null pointer, an unknown type or configuration number, a size that does not fit */
#define XMLLIB_WRONG_ORDER 2u      /* the call's predecessor is missing */
#define XMLLIB_NO_MEMORY 3u
#define XMLLIB_NO_FILE 4u       /* the file is missing or cannot be opened */
#define XMLLIB_NOT_WELL_FORMED 5u /* no XML, cut off, another encoding than UTF-8, or over the bounds of size and depth */
#define XMLLIB_BAD_POLICY 6u    /* a policy entry without a usable type, range or default */
#define XMLLIB_NO_SUCH_KEY 7u   /* the key is neither in the configuration nor in the policy */
#define XMLLIB_NO_NUMBER 8u     /* the value is not a decimal or 0x number of 32 bits */
#define XMLLIB_OUT_OF_RANGE 9u  /* the value is outside the policy's range */

#define XMLLIB_CONFIG_CLUSTER 1u /* HOME/etc/cluster.xml */
#define XMLLIB_TYPE_DWORD 1u     /* a 32-bit number, 4 bytes */

/* Ordinal 1. @param lpComponent name of the caller's component. */
XMLLIB_STATUS xmllib_init(const char* lpComponent);
/* Ordinal 2. Releases whatever the sequence still holds. */
XMLLIB_STATUS xmllib_term(void);
/* Ordinal 4. Reads HOME/etc/policy/COMPONENT.xml: type, range, default, unit and text of each key. */
XMLLIB_STATUS xmllib_load_policy(const char* lpComponent);
/* Ordinal 5. */
XMLLIB_STATUS xmllib_unload_policy(const char* lpComponent);
/* Ordinal 6. Reads the configuration. A file that is being saved is read up to three times, 50 ms apart: may block so long. */
XMLLIB_STATUS xmllib_load_config(DWORD dwConfig);
/* Ordinal 7. */
XMLLIB_STATUS xmllib_unload_config(void);
/**
 * Ordinal 13. One value by key path, for example "/root/diskperf/log/level". A key that the configuration lacks gets the
 * policy's default.
 * @param dwType    XMLLIB_TYPE_DWORD
 * @param lpValue   receives the value; untouched on failure
 * @param lpdwSize  in: size of the destination, at least 4; out: bytes written
 */
XMLLIB_STATUS xmllib_get_value(const char* lpKey, DWORD dwType, void* lpValue, DWORD* lpdwSize);

#define XMLLIB_SETTING_MAX 32
#define XMLLIB_KEY_SIZE 96
#define XMLLIB_TEXT_SIZE 160

/* One setting as the policy describes it and the file gives it. */
typedef struct XMLLIB_SETTING {
    char szKey[XMLLIB_KEY_SIZE];   /* whole key path */
    char szUnit[16];               /* "s", "KiB" or empty */
    char szHelp[XMLLIB_TEXT_SIZE]; /* one sentence for operators */
    DWORD dwValue;                 /* value in the file, or the default */
    DWORD dwDefault;
    DWORD dwMin;
    DWORD dwMax;
    BOOL bInFile; /* FALSE: the key is missing and the default holds */
    BOOL bHex;    /* TRUE: people write this value in hexadecimal */
} XMLLIB_SETTING;

/* The first reason for which a file is refused. Fields that do not apply are 0 or empty. */
typedef struct XMLLIB_FINDING {
    DWORD dwStatus;                  /* XMLLIB_OK: the file is accepted */
    char szFile[MAX_PATH * 2];       /* file that is wrong, UTF-8 */
    DWORD dwLine;                    /* 1 based */
    DWORD dwColumn;                  /* 1 based, in bytes */
    char szKey[XMLLIB_KEY_SIZE];     /* key whose value is wrong */
    char szValue[64];                /* the value as it stands, cut off where it is longer */
    char szReason[XMLLIB_TEXT_SIZE]; /* one sentence, for people */
    DWORD dwMin;                     /* allowed range, where a value is wrong */
    DWORD dwMax;
} XMLLIB_FINDING;

typedef struct XMLLIB_REPORT {
    XMLLIB_FINDING finding;
    DWORD dwSettings; /* entries of setting in use; 0 where the policy cannot be read */
    XMLLIB_SETTING setting[XMLLIB_SETTING_MAX];
} XMLLIB_REPORT;

/**
 * Ordinal 14. Reads policy and configuration as the calls above would, keeps nothing, and says all about it.
 * @param lpComponent  policy to check against
 * @param lpwcFile     configuration file to read; NULL: HOME/etc/cluster.xml
 * @param lpReport     receives the report; must not be NULL
 * @return the finding's status. May block 100 ms for a file that is being saved.
 */
XMLLIB_STATUS xmllib_check(const char* lpComponent, const WCHAR* lpwcFile, XMLLIB_REPORT* lpReport);

#ifdef __cplusplus
}
#endif

#endif
