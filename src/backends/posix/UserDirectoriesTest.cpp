#include "backends/posix/UserDirectories.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tessarin {
namespace {

// Null takes the variable away.
void set(const char* name, const char* value) {
  if (value)
    ::setenv(name, value, 1);
  else
    ::unsetenv(name);
}

TEST(UserDirectories, CachesAreWhereTheUserWantsThem) {
  const struct {
    const char* caches;
    const char* home;
    std::optional<std::string> directory;
  } cases[] = {
      {"/var/caches/me", "/home/me", "/var/caches/me"},
      {nullptr, "/home/me", "/home/me/.cache"},
      {"", "/home/me", "/home/me/.cache"},
      {"relative", "/home/me", "/home/me/.cache"},
      {nullptr, nullptr, std::nullopt},
      {"relative", "me", std::nullopt},
      {nullptr, "", std::nullopt},
  };
  for (const auto& each : cases) {
    set("XDG_CACHE_HOME", each.caches);
    set("HOME", each.home);
    EXPECT_EQ(userCachesDirectory(), each.directory);
  }
}

TEST(UserDirectories, TemporaryFilesHaveAPlaceInAnyCase) {
  set("TMPDIR", "/var/scratch");
  EXPECT_EQ(temporaryFilesDirectory(), "/var/scratch");
  set("TMPDIR", "scratch");
  EXPECT_EQ(temporaryFilesDirectory(), "/tmp");
  set("TMPDIR", nullptr);
  EXPECT_EQ(temporaryFilesDirectory(), "/tmp");
}

} // namespace
} // namespace tessarin
