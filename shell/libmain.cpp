// libmain.cpp - the entry of ozmxmlapi_malloc: the load and unload hooks.
//
// At load the exit-handler table is opened before the library's static
// initialisers run (they register the allocator's last call in it); at
// unload the table runs. Thread start and end are of no interest here.
#include "shell/ozmfront.h"

#include <unistd.h>

extern OzmExitFn* g_exitTable;
extern OzmExitFn* g_exitEnd;

int g_attachCount = 0;

int OzmLibMain(int reason) {
    if (reason == kOzmProcessAttach) {
        if (!OzmExitTableOpen(g_exitTable, g_exitEnd))
            return 0;
        ++g_attachCount;
        return 1;
    }
    if (reason == kOzmProcessDetach) {
        if (g_attachCount <= 0)
            return 0;
        --g_attachCount;
        OzmExitTableRun(g_exitTable, g_exitEnd);
        return 1;
    }
    return 1;
}

namespace {

// Priority 101 puts the load hook in front of the static initialisers of
// this library and the unload hook after their destructors.
__attribute__((constructor(101))) void OnLoad() {
    if (!OzmLibMain(kOzmProcessAttach)) {
        static const char msg[] = "ozmxmlapi_malloc: no memory for the exit-handler table\n";
        ssize_t ignored = write(2, msg, sizeof msg - 1);
        (void)ignored;
        _exit(127);
    }
}

__attribute__((destructor(101))) void OnUnload() { OzmLibMain(kOzmProcessDetach); }

}  // namespace
