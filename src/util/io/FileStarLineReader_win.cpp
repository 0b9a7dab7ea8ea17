#include <stdio.h>

#include "util/io/FileStarLineReader.h"

namespace morvax {

void FileStarLineReader::lockFile(FILE* file) {
    _lock_file(file);
}

void FileStarLineReader::unlockFile(FILE* file) {
    _unlock_file(file);
}

int FileStarLineReader::getcUnlocked(FILE* file) {
    return _getc_nolock(file);
}

}  // namespace morvax
