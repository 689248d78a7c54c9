// Storage names as the system wants them. The engine's names keep backslashes; here a backslash separates
// directories, a drive prefix ("c:") is dropped, and the directory c:\temp means $TMPDIR or /tmp.
#pragma once

namespace tovik {

class SystemPath {
 public:
  explicit SystemPath(const char *name);

  // The translated path, or null (with errno set) when the name is null or too long.
  const char *text() const { return valid_ ? text_ : nullptr; }

  // Cuts the path down to the directory that holds its last part; "." when it names none.
  void to_directory();

 private:
  char text_[4096];  // PATH_MAX
  bool valid_;
};

}  // namespace tovik
