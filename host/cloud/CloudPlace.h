#pragma once

#include <string>

// Point files that take the place of others. The engine keeps unfinished edits in FILE.journal and completes them in the
// next file of that name that looks the same, as a second copy of a cloud does, or one built again.

// Removes the journal of a point file that is gone or about to go; what has the name and is no journal stays. Throws
// CommandFailure while another process edits the file.
void dropJournal(const std::string& pointFile);

// Gives a finished point file its name, and drops the journal of the file it replaces. The point file must be closed.
void moveIntoPlace(const std::string& partPath, const std::string& output);
