#include <stdio.h>

#include "util/io/FileStarLineReader.h"

namespace morvax {

void FileStarLineReader::lockFile(FILE* file) {
    flockfile(file);
}

void FileStarLineReader::unlockFile(FILE* file) {
    funlockfile(file);
}

int FileStarLineReader::getcUnlocked(FILE* file) {
    return getc_unlocked(file);
}

}  // namespace morvax
