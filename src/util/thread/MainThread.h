#pragma once

#include "util/thread/Thread.h"

namespace morvax {

// The Thread object of the thread that runs the program's entry function; it must be the first
// Thread of the process. It binds to the calling thread, is named "MainThread" and is not
// counted by threadCount(). Its destruction marks the process as shutting down (Thread::alive),
// after which another MainThread may be built.
class MainThread : public Thread {
  public:
    // Throws ThreadException "Main Thread created twice!" while another one exists.
    MainThread();
    ~MainThread() override;

  private:
    Record record_;
};

}  // namespace morvax
