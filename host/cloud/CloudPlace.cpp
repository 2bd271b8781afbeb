#include "cloud/CloudPlace.h"

#include "support/Failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>

// docs/format.md has the form of a journal.
static constexpr std::string_view BEGINNING = "NMBJRNL1";

void dropJournal(const std::string& pointFile) {
    const std::string path = pointFile + ".journal";
    const int journal = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); // a pipe must not keep us waiting
    if (journal < 0) return;
    const bool isEdited = flock(journal, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    char start[BEGINNING.size()] = {};
    const ssize_t length = read(journal, start, sizeof(start));
    if (!isEdited && length > 0 && BEGINNING == std::string_view(start, static_cast<size_t>(length))) {
        unlink(path.c_str());
    }
    close(journal);
    if (isEdited) throw CommandFailure(pointFile, "cannot be replaced: another process edits it");
}

void moveIntoPlace(const std::string& partPath, const std::string& output) {
    dropJournal(output);
    if (std::rename(partPath.c_str(), output.c_str()) == 0) return;
    throw CommandFailure(output, std::string("cannot be renamed from ") + partPath + ": " + std::strerror(errno));
}
