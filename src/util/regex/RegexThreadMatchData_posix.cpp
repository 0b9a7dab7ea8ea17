#include <pthread.h>

#include "util/regex/RegexThreadMatchData.h"
#include "util/thread/Thread.h"

namespace morvax {

namespace {

pthread_key_t matchDataKey(void (*destructor)(void*)) {
    static const pthread_key_t key = [destructor] {
        pthread_key_t created;
        int rc = pthread_key_create(&created, destructor);
        if (rc != 0) {
            // Without a slot no search could run.
            fatalThreadError("pthread_key_create", static_cast<uint32_t>(rc));
        }
        return created;
    }();
    return key;
}

}  // namespace

RegexThreadMatchData::Entry* RegexThreadMatchData::current() {
    return static_cast<Entry*>(pthread_getspecific(matchDataKey(&release)));
}

void RegexThreadMatchData::setCurrent(Entry* entry) {
    pthread_setspecific(matchDataKey(&release), entry);
}

}  // namespace morvax
