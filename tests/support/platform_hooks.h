/*
 * The doubles of the platform libraries, put into the import table of a module that binds them by ordinal.
 */
#ifndef TESTS_SUPPORT_PLATFORM_HOOKS_H
#define TESTS_SUPPORT_PLATFORM_HOOKS_H

#include "support/import_hooks.h"

/* Replaces every ordinal of tnwlog, tnwxml and tnwdiskfltr that the module imports; returns how many. */
unsigned InstallPlatformDoubles(ImportHooks& hooks);

#endif
