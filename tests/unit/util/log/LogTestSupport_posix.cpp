#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "unit/util/log/LogTestSupport.h"

namespace morvax::test {

void StandardErrorCapture::redirect() {
    std::fflush(stderr);
    saved_ = ::dup(STDERR_FILENO);
    int file = ::open(path_.c_str(), O_WRONLY | O_APPEND);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
}

void StandardErrorCapture::restore() {
    std::fflush(stderr);
    ::dup2(static_cast<int>(saved_), STDERR_FILENO);
    ::close(static_cast<int>(saved_));
    saved_ = FileHandle::INVALID;
}

}  // namespace morvax::test
