#include <windows.h>

#include "util/regex/RegexThreadMatchData.h"
#include "util/thread/Thread.h"

namespace morvax {

namespace {

void (*releaseEntry)(void*) = nullptr;

VOID WINAPI releaseAtThreadEnd(PVOID entry) {
    if (releaseEntry != nullptr) {
        releaseEntry(entry);
    }
}

DWORD matchDataSlot(void (*release)(void*)) {
    static const DWORD slot = [release] {
        releaseEntry = release;
        DWORD created = FlsAlloc(&releaseAtThreadEnd);
        if (created == FLS_OUT_OF_INDEXES) {
            // Without a slot no search could run.
            fatalThreadError("FlsAlloc", GetLastError());
        }
        return created;
    }();
    return slot;
}

}  // namespace

RegexThreadMatchData::Entry* RegexThreadMatchData::current() {
    return static_cast<Entry*>(FlsGetValue(matchDataSlot(&release)));
}

void RegexThreadMatchData::setCurrent(Entry* entry) {
    FlsSetValue(matchDataSlot(&release), entry);
}

}  // namespace morvax
