#include "frame/status.h"

#include <gtest/gtest.h>

#include "frame/error.h"

using namespace tovik;

TEST(Status, RowsAscend) {
  for (int i = 1; i < status_text_count; ++i) {
    EXPECT_LT(status_texts[i - 1].code, status_texts[i].code) << "row " << i;
  }
}

TEST(Status, MessagesByCode) {
  static const struct {
    StatusCode code;
    const char *text;
  } cases[] = {
      {1, "\x83\x81\x83\x82\x83\x8a\x8a\x6d\x95\xdb\x82\xc9\x8e\xb8\x94\x73"},  // first row
      {190017,                                                                  // last row
       "\x83\x4a\x83\x89\x83\x80\x92\x6c\x82\xcc\x8e\xe6\x93\xbe\x83\x66\x81\x5b\x83\x5e\x83\x5e\x83\x43\x83"
       "\x76"
       "\x82\xaa\x95\x73\x90\xb3"},
      {301, "\x83\x52\x81\x5b\x83\x68\x95\xcf\x8a\xb7\x82\xc9\x8e\xb8\x94\x73"},
      {0, "Not found error message."},
      {-5, "Not found error message."},
      {3, "Not found error message."},
      {119, "Not found error message."},
      {22013, "Not found error message."},
      {190018, "Not found error message."},
      {202101, "Not found error message."},
      {2147483647, "Not found error message."},
  };
  for (const auto &c : cases) EXPECT_STREQ(c.text, err_message(c.code)) << c.code;
  for (const StatusText &row : status_texts) EXPECT_EQ(row.text, err_message(row.code)) << row.code;
}
