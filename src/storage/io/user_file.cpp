#include "storage/io/user_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tovik {

namespace {

bool write_out(FileWriter &writer, const char *bytes, int64_t length) {
  if (file_driver.file_write(writer.handle, bytes, length, writer.written) != length)
    return fail(status::io_write);
  writer.written += length;
  return true;
}

bool flush(FileWriter &writer) {
  const int length = writer.used;
  writer.used = 0;
  return length == 0 || write_out(writer, writer.buffer, length);
}

bool sync(const FileWriter &writer) {
  return file_driver.file_sync(writer.handle) >= 0 || fail(status::io_sync);
}

bool close(FileWriter &writer) {
  const DriverHandle handle = writer.handle;
  writer.handle = no_handle;
  return file_driver.file_close(handle) >= 0 || fail(status::io_close);
}

bool read_in(FileReader &reader, char *target, int64_t length) {
  if (length > 0 && file_driver.file_read(reader.handle, target, length, reader.read) != length)
    return fail(status::io_read);
  reader.read += length;
  return true;
}

// A directory, a device or a pipe has no size that tells where it ends.
bool regular_or_missing(const char *name) {
  return file_driver.file_info(name, nullptr) == 1 || file_driver.file_exists(name) == 0;
}

}  // namespace

FileWriter *file_writer_create(const char *name, int mode) {
  FileWriter *writer = static_cast<FileWriter *>(mem_alloc(sizeof(FileWriter)));
  if (writer == nullptr) return fail_null(status::out_of_memory);
  writer->name = name;
  writer->written = writer->used = 0;
  writer->handle = file_driver.file_open(name, open_create | open_new, mode, 0, 0);
  if (writer->handle != no_handle) return writer;
  err_set(status::io_create);
  mem_free(writer);
  return nullptr;
}

bool file_writer_put(FileWriter &writer, const char *bytes, int64_t length) {
  if (length > user_file_buffer - writer.used && !flush(writer)) return false;
  if (length > user_file_buffer) return write_out(writer, bytes, length);
  memcpy(writer.buffer + writer.used, bytes, static_cast<size_t>(length));
  writer.used += static_cast<int>(length);
  return true;
}

bool file_writer_keep(FileWriter *writer) {
  FileWriterHold hold(writer);
  if (!flush(*writer) || !sync(*writer) || !close(*writer)) return false;
  mem_free(hold.release());
  return true;
}

void file_writer_drop(FileWriter *writer) {
  if (writer == nullptr) return;
  const ErrorScope the_cause_stands;
  if (writer->handle != no_handle) (void)close(*writer);
  (void)file_driver.file_remove(writer->name);
  mem_free(writer);
}

FileReader *file_reader_open(const char *name) {
  if (!regular_or_missing(name)) {
    errno = EINVAL;
    return fail_null(status::io_open);
  }
  FileReaderHold reader(static_cast<FileReader *>(mem_alloc(sizeof(FileReader))));
  if (reader == nullptr) return fail_null(status::out_of_memory);
  reader->read = 0;
  reader->next = reader->end = reader->buffer;
  reader->handle = file_driver.file_open(name, open_read_only, 0, 0, 0);
  if (reader->handle == no_handle) return fail_null(status::io_open);
  reader->size = file_driver.file_size(reader->handle);
  return reader->size < 0 ? fail_null(status::io_size) : reader.release();
}

void file_reader_close(FileReader *reader) {
  if (reader == nullptr) return;
  if (reader->handle != no_handle) (void)file_driver.file_close(reader->handle);
  mem_free(reader);
}

bool file_reader_fill(FileReader &reader) {
  const int64_t length = std::min<int64_t>(reader.size - reader.read, user_file_buffer);
  reader.next = reader.buffer;
  reader.end = reader.buffer + length;
  return read_in(reader, reader.buffer, length);
}

bool file_reader_all(FileReader &reader, char *target) {
  return read_in(reader, target, reader.size - reader.read);
}

}  // namespace tovik
