// device, storage: the appliance's identity, firmware variables and storage devices.
#include <zolo/media.h>
#include <zolo_info.h>
#include <zolo_storage.h>

#include <memory>
#include <string>
#include <vector>

#include "context.h"

namespace zmctl {

namespace {

constexpr int kStorageTypes = 10;

std::string Megabytes(uint64_t bytes) {
  return std::to_string(bytes / (1024 * 1024));
}

}  // namespace

void AddDeviceCommands(CLI::App& app, Context& context) {
  auto* device = app.add_subcommand("device", "Show the device's name, description and MAC");
  device->callback([&context] {
    context.out().Record({{"hostname", GetDeviceHostname()},
                          {"description", GetDeviceDescription()},
                          {"mac", GetMacAddressStr(false)}});
  });

  auto* fwenv = app.add_subcommand("fwenv", "Read a firmware (U-Boot) variable");
  auto name = std::make_shared<std::string>();
  fwenv->add_option("NAME", *name, "Variable name, e.g. movie_resource")->required();
  fwenv->callback([&context, name] {
    std::string value;
    int result = zi_get_fwprintenv(name->c_str(), &value);
    if (result != 0) {
      context.status = Fail("reading firmware variable " + *name, result == -2 ? -5 : -1);
      return;
    }
    context.out().Record({{"name", *name}, {"value", value}});
  });

  auto* storage = app.add_subcommand("storage", "Storage devices");
  storage->require_subcommand(1);
  storage->add_subcommand("list", "List the mounted storage devices")->callback([&context] {
    zs_storage_init();
    std::vector<zs_storage> list;
    for (int type = 0; type < kStorageTypes; ++type) zs_get_storage_info(type, &list);
    zs_storage_release();
    std::vector<Row> rows;
    for (const auto& s : list)
      rows.push_back({s.name, s.mount_dir, s.fs_type, Megabytes(s.total_size),
                      Megabytes(s.free_size), s.formatted ? "yes" : "no"});
    context.out().Table({"name", "mount", "type", "total_mb", "free_mb", "recordable"}, rows);
  });
  AddStorageInfoCommand(*storage, context);
}

}  // namespace zmctl
