// Files that are read and written as one text.
#pragma once

#include <optional>
#include <string>

// Others find the file as it was or as it is now, never a part. It stays what it was: a link is followed, and
// the mode and, where this user may, the owner are kept. What is no plain file, as a terminal or a pipe, is
// written to. A link or file of a stranger's that lies there in a directory like /tmp is neither followed nor
// replaced; the directories on the way are taken as they are. Throws
// std::runtime_error, and leaves all as it was then.
void write_whole_file(const std::string &path, const std::string &text);

// However many pieces it takes. Returns false, and errno tells why, when something is left.
bool write_all(int fd, const std::string &text);

// What other programs write at places that are known, where anybody may put something else: only plain files,
// and where anybody may make one only those of root, this user, the directory's owner or the DHCP server's
// user. None when there is none, when it cannot be read, or when it is larger than such a file ever is.
std::optional<std::string> text_of_others(const std::string &path);

// The same of a file that the router's settings name: whoever it belongs to, it is wanted.
std::optional<std::string> text_of_named(const std::string &path);

// None when it cannot be read; errno tells why.
std::optional<std::string> file_text(const std::string &path);

// Throws std::runtime_error when it cannot be read.
std::string read_whole_file(const std::string &path);
