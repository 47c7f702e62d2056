/*
 * textfile.h - contact files on disk for import and export: read whole,
 * written whole by one durable replace, regular files only; "-" is standard
 * input or output.
 */
#ifndef PBCLI_TEXTFILE_H
#define PBCLI_TEXTFILE_H

#include <string>

namespace pbcli {

// Reads a regular file of at most 16 MiB whole ("-": standard input). A
// folder, a device or a FIFO is refused (it would read as nothing or never
// end), without blocking on a FIFO that has no writer.
bool read_text_file(const std::string &path, std::string *out);

// Replaces path durably: writes the text to a temporary file beside it
// (".<name>.pbexport-XXXXXX"), flushes it to the disk, renames it over
// path and flushes the folder, so that a failure or a power cut leaves path
// as it was or whole and new. Temporary files of earlier exports to path
// that were cut short are removed first. A path that is a folder, a device
// or a FIFO is refused. The file keeps the mode of the file it replaces,
// else it is for its owner and group only (0640). "-" writes to standard
// output.
bool write_text_file(const std::string &path, const std::string &text);

}  // namespace pbcli

#endif
