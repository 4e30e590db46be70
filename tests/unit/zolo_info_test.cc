// Firmware variables from a real U-Boot environment image made by mkenvimage.
#include <gtest/gtest.h>
#include <zolo_info.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "sandbox.h"

namespace {

using zolo::test::Sandbox;
using zolo::test::SourceDir;

class FirmwareEnvTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string command = SourceDir() + "/scripts/make-fw-env.sh " + sandbox_.root() +
                          " movie_resource=3 bootdelay=0 'label=studio one'";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  Sandbox sandbox_;
};

TEST_F(FirmwareEnvTest, ReadsVariablesBelowTheSandboxRoot) {
  std::string value;
  EXPECT_EQ(zi_get_fwprintenv("movie_resource", &value), 0);
  EXPECT_EQ(value, "3");
  EXPECT_EQ(zi_get_fwprintenv("label", &value), 0);
  EXPECT_EQ(value, "studio one");
  EXPECT_EQ(zi_get_fwprintenv("bootdelay", &value), 0);
  EXPECT_EQ(value, "0");
}

TEST_F(FirmwareEnvTest, MissingVariableConfigOrImageFails) {
  std::string value = "kept";
  EXPECT_EQ(zi_get_fwprintenv("absent", &value), -2);
  EXPECT_EQ(value, "kept");
  EXPECT_EQ(zi_get_fwprintenv(nullptr, &value), -1);
  EXPECT_EQ(zi_get_fwprintenv("movie_resource", nullptr), -1);
  std::remove(sandbox_.Path("/var/lib/zolo/uboot.env").c_str());
  EXPECT_EQ(zi_get_fwprintenv("movie_resource", &value), -1);
  std::remove(sandbox_.Path("/etc/fw_env.config").c_str());
  EXPECT_EQ(zi_get_fwprintenv("movie_resource", &value), -1);
  EXPECT_EQ(value, "kept");
}

TEST_F(FirmwareEnvTest, CorruptImageIsRejected) {
  std::string path = sandbox_.Path("/var/lib/zolo/uboot.env");
  {
    std::fstream image(path, std::ios::in | std::ios::out | std::ios::binary);
    image.seekp(10);
    image.put('#');  // breaks the CRC over the variables
  }
  std::string value;
  EXPECT_EQ(zi_get_fwprintenv("movie_resource", &value), -1);
  sandbox_.WriteFile("/etc/fw_env.config", "# nothing but comments\n\n");
  EXPECT_EQ(zi_get_fwprintenv("movie_resource", &value), -1);
}

}  // namespace
