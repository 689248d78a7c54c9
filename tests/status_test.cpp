#include "frame/status.h"

#include <gtest/gtest.h>

#include "frame/error.h"

using namespace tovik;

TEST(Status, MessagesByCode) {
  for (int i = 0; i < status_text_count; ++i) {
    EXPECT_TRUE(i == 0 || status_texts[i - 1].code < status_texts[i].code) << "row " << i;
    EXPECT_EQ(status_texts[i].text, err_message(status_texts[i].code)) << status_texts[i].code;
  }
  EXPECT_STREQ("\x83\x81\x83\x82\x83\x8a\x8a\x6d\x95\xdb\x82\xc9\x8e\xb8\x94\x73", err_message(1));
  for (const StatusCode unknown : {-5, 0, 3, 119, 22013, 190018, 2147483647})
    EXPECT_STREQ("Not found error message.", err_message(unknown)) << unknown;
}
