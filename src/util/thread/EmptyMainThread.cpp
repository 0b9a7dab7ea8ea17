#include "util/thread/EmptyMainThread.h"

namespace morvax {

EmptyMainThread::EmptyMainThread() = default;

EmptyMainThread::~EmptyMainThread() = default;

void EmptyMainThread::main() {}

}  // namespace morvax
