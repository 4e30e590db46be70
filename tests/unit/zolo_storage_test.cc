// Storage devices as real mounted file systems below the sandbox root.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zolo_storage.h>

#include <string>
#include <vector>

#include "sandbox.h"

namespace {

using zolo::test::Sandbox;

constexpr int kSd = 5;
constexpr int kUsb0 = 2;

class StorageDeviceTest : public testing::Test {
 protected:
  void SetUp() override { zs_storage_init(); }
  void TearDown() override {
    for (const auto& dir : mounted_) umount2(dir.c_str(), MNT_DETACH);
    zs_storage_release();
  }
  // Mounts a tmpfs of `megabytes` at /media/<name>; skips the test where that is not allowed.
  void MountTmpfs(const std::string& name, int megabytes) {
    std::string dir = sandbox_.Path("/media/" + name);
    sandbox_.MakeDir("/media/" + name);
    std::string options = "size=" + std::to_string(megabytes) + "m";
    if (mount("tmpfs", dir.c_str(), "tmpfs", 0, options.c_str()) != 0)
      GTEST_SKIP() << "mounting needs root";
    mounted_.push_back(dir);
  }
  Sandbox sandbox_;
  std::vector<std::string> mounted_;
};

TEST_F(StorageDeviceTest, MountedTmpfsIsPresentWithItsSizes) {
  MountTmpfs("SD", 8);
  sandbox_.WriteFile("/media/SD/rec.bin", std::string(1 << 20, 'r'));
  std::vector<zs_storage> list;
  ASSERT_EQ(zs_get_storage_info(kSd, &list), 0);
  ASSERT_EQ(list.size(), 1u);
  const zs_storage& sd = list[0];
  EXPECT_STREQ(sd.name, "SD");
  EXPECT_STREQ(sd.mount_dir, "/media/SD");
  EXPECT_STREQ(sd.fs_type, "tmpfs");
  EXPECT_TRUE(sd.present);
  EXPECT_TRUE(sd.formatted);
  struct statvfs vfs;
  ASSERT_EQ(statvfs(sandbox_.Path("/media/SD").c_str(), &vfs), 0);
  EXPECT_EQ(sd.total_size, 8u << 20);
  EXPECT_EQ(sd.free_size, static_cast<uint64_t>(vfs.f_bavail) * vfs.f_frsize);
  EXPECT_LE(sd.free_size, (8u << 20) - (1u << 20));
  // Another call appends; the caller's vector is not cleared.
  ASSERT_EQ(zs_get_storage_info(kSd, &list), 0);
  EXPECT_EQ(list.size(), 2u);
}

TEST_F(StorageDeviceTest, ExistingDirectoryWithoutMountIsNotPresent) {
  sandbox_.MakeDir("/media/USB0");
  std::vector<zs_storage> list;
  EXPECT_EQ(zs_get_storage_info(kUsb0, &list), -2);
  EXPECT_EQ(zs_get_storage_info(kSd, &list), -2);  // no directory at all
  EXPECT_TRUE(list.empty());
}

TEST_F(StorageDeviceTest, UnknownTypesAndNullListAreRefused) {
  std::vector<zs_storage> list;
  for (int type : {-1, 10, 11, 1000}) EXPECT_EQ(zs_get_storage_info(type, &list), -1) << type;
  EXPECT_EQ(zs_get_storage_info(kSd, nullptr), -1);
  EXPECT_TRUE(list.empty());
}

TEST_F(StorageDeviceTest, OnlyTheExactMountPointCounts) {
  MountTmpfs("SD", 4);
  // A directory inside a mounted storage is not itself a storage.
  sandbox_.MakeDir("/media/SD/USB0");
  std::vector<zs_storage> list;
  EXPECT_EQ(zs_get_storage_info(kUsb0, &list), -2);
}

}  // namespace
