#include "util/thread/MainThread.h"

namespace morvax {

MainThread::MainThread() : Thread(MainThreadTag{}) {
    attachMainRecord(&record_);
}

MainThread::~MainThread() {
    detachMainThread();
}

}  // namespace morvax
