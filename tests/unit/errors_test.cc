// Result-code meanings and the version the library reports.
#include <gtest/gtest.h>
#include <link.h>
#include <zolo/media.h>

#include <climits>
#include <cstring>
#include <set>
#include <string>

namespace {

TEST(Errors, EveryResultCodeHasItsOwnMeaningAndAnyOtherIsUnknown) {
  std::set<std::string> meanings;
  for (int code = 0; code >= -15; --code) {
    const char* text = zm_strerror(code);
    ASSERT_NE(text, nullptr);
    EXPECT_STRNE(text, "unknown result code") << code;
    meanings.insert(text);
  }
  EXPECT_EQ(meanings.size(), 16u);
  EXPECT_STREQ(zm_strerror(-4), "the media engine is not in a state that allows this");
  for (int code : {1, -16, -1004, INT_MIN, INT_MAX}) {
    ASSERT_NE(zm_strerror(code), nullptr);
    EXPECT_STREQ(zm_strerror(code), "unknown result code") << code;
  }
}

int FindSoname(dl_phdr_info* info, size_t, void* data) {
  if (std::strstr(info->dlpi_name, "libzolo_media.so.") != nullptr)
    *static_cast<std::string*>(data) = std::strrchr(info->dlpi_name, '/') + 1;
  return 0;
}

TEST(Version, HeadersLibraryAndSonameAgree) {
  EXPECT_STREQ(zm_version(), ZM_VERSION_STRING);
  EXPECT_EQ(std::string(ZM_VERSION_STRING), std::to_string(ZM_VERSION_MAJOR) + "." +
                                                std::to_string(ZM_VERSION_MINOR) + "." +
                                                std::to_string(ZM_VERSION_PATCH));
  std::string loaded;
  dl_iterate_phdr(FindSoname, &loaded);
  EXPECT_EQ(loaded, "libzolo_media.so." + std::to_string(ZM_VERSION_MAJOR));
}

}  // namespace
