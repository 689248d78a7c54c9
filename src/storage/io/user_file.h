// Files beside the databases, which statements name: written or read from front to end in large pieces,
// through the file driver, whatever driver the database is on. Their names follow the rules of storage names;
// the name outlives the object. One thread uses an object, and no lock is taken.
#pragma once

#include "frame/error.h"
#include "platform/held.h"
#include "platform/platform.h"

namespace tovik {

inline constexpr int user_file_buffer = 64 * 1024;

struct FileWriter {
  const char *name;
  DriverHandle handle;
  int64_t written;  // bytes in the file
  int used;         // of buffer
  char buffer[user_file_buffer];
};

// A new file with these permissions; one that is there is left alone. 101, 1.
FileWriter *file_writer_create(const char *name, int mode);
[[nodiscard]] bool file_writer_put(FileWriter &writer, const char *bytes, int64_t length);  // 105
// Ends the writer: the file is on the disk then, or removed when that fails. 105, 107, 103.
[[nodiscard]] bool file_writer_keep(FileWriter *writer);
void file_writer_drop(FileWriter *writer);  // ends the writer and removes the file; null is ignored
using FileWriterHold = Held<FileWriter, file_writer_drop>;

struct FileReader {
  DriverHandle handle;
  int64_t size;            // bytes, when it was opened
  int64_t read;            // of them
  const char *next, *end;  // what the last fill brought
  char buffer[user_file_buffer];
};

FileReader *file_reader_open(const char *name);  // of a regular file: 102, 109, 1
void file_reader_close(FileReader *reader);      // null is ignored
using FileReaderHold = Held<FileReader, file_reader_close>;

// The next piece; next equals end behind the last one. 104, also when the file became shorter.
[[nodiscard]] bool file_reader_fill(FileReader &reader);
[[nodiscard]] bool file_reader_all(FileReader &reader, char *target);  // size bytes, before any fill. 104

}  // namespace tovik
