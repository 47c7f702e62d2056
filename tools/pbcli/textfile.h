// Contact files on disk for import and export: read whole, written whole by
// replacement, regular files only.
#ifndef PBCLI_TEXTFILE_H
#define PBCLI_TEXTFILE_H

#include <string>

namespace pbcli {

// Reads a regular file of at most 16 MiB whole. A folder, a device or a
// FIFO is refused (it would read as nothing or never end), without
// blocking on a FIFO that has no writer.
bool read_text_file(const std::string &path, std::string *out);

// Writes text to a new file beside path, flushes it and renames it over
// path, so that a failure leaves path as it was. A path that is a folder,
// a device or a FIFO is refused. The file keeps the mode of the file it
// replaces, else it is for its owner and group only (0640).
bool write_text_file(const std::string &path, const std::string &text);

}  // namespace pbcli

#endif
