// zolo-media-gateway: the media library's network face (WebSocket, HTTP).
#include <glib-unix.h>
#include <zolo/media.h>
#include <zolo/version.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "auth.h"
#include "config.h"
#include "gateway.h"

namespace {

constexpr const char* kDefaultConfig = "/etc/media.conf";

struct Options {
  gchar* config = nullptr;
  gchar* address = nullptr;
  gchar* www = nullptr;
  gint port = -1;
  gboolean hash_password = FALSE;
  gboolean version = FALSE;
};

int HashPassword() {
  std::string password;
  if (!std::getline(std::cin, password) || password.empty()) {
    std::cerr << "zolo-media-gateway: no password on standard input\n";
    return 2;
  }
  std::cout << "password_hash=" << zolo::gateway::HashPasswordLine(password) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const GOptionEntry entries[] = {
      {"config", 'c', 0, G_OPTION_ARG_FILENAME, &options.config,
       "Configuration file, taken as given (default: /etc/media.conf, below $ZOLO_SYSROOT when "
       "set)",
       "FILE"},
      {"address", 'a', 0, G_OPTION_ARG_STRING, &options.address,
       "Address to listen on, instead of [Gateway] address", "ADDRESS"},
      {"port", 'p', 0, G_OPTION_ARG_INT, &options.port,
       "Port to listen on, instead of [Gateway] port (0: any free port)", "PORT"},
      {"www", 'w', 0, G_OPTION_ARG_FILENAME, &options.www,
       "Folder of the console page served at /, taken as given (default: [Gateway] www, else "
       "the folder installed with the gateway)",
       "DIR"},
      {"hash-password", 0, 0, G_OPTION_ARG_NONE, &options.hash_password,
       "Read a password on standard input and print the password_hash line to store", nullptr},
      {"version", 'V', 0, G_OPTION_ARG_NONE, &options.version, "Print the version and exit",
       nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  GOptionContext* context = g_option_context_new(nullptr);
  g_option_context_set_summary(
      context,
      "Serves every media library call and every engine signal over one WebSocket\n"
      "connection (/ws), and images (/images), live pictures for watching clients (/live),\n"
      "health (/healthz), metrics (/metrics) and the console page (/) over HTTP. Settings:\n"
      "the [Gateway] group of the configuration file.\n"
      "The protocol is described in /usr/share/doc/zolo-media-gateway/gateway-protocol.md.");
  g_option_context_set_description(
      context,
      "Exit status: 0 after a clean stop (SIGTERM, SIGINT), 1 when the library or the server\n"
      "cannot start, 2 for bad options or configuration, or a non-loopback address without\n"
      "a password.");
  g_option_context_add_main_entries(context, entries, nullptr);
  GError* error = nullptr;
  bool parsed = g_option_context_parse(context, &argc, &argv, &error);
  g_option_context_free(context);
  if (!parsed) {
    std::cerr << "zolo-media-gateway: " << error->message << "\n";
    g_error_free(error);
    return 2;
  }
  // The option texts are copied where they are used and freed before anything can return.
  std::string config_file = options.config != nullptr ? options.config : "";
  std::string address = options.address != nullptr ? options.address : "";
  std::string www = options.www != nullptr ? options.www : "";
  g_free(options.config);
  g_free(options.address);
  g_free(options.www);
  if (options.version) {
    std::cout << "zolo-media-gateway " << ZM_VERSION_STRING << " (protocol 1)\n";
    return 0;
  }
  if (options.hash_password) return HashPassword();

  zolo::gateway::Config config;
  std::string problem;
  bool system_file = config_file.empty();
  if (!zolo::gateway::LoadConfig(system_file ? kDefaultConfig : config_file, system_file, &config,
                                 &problem)) {
    std::cerr << "zolo-media-gateway: " << problem << "\n";
    return 2;
  }
  if (!address.empty()) config.address = address;
  if (options.port >= 0) config.port = options.port;
  config.www_option = www;
  if (!zolo::gateway::IsLoopback(config.address) && config.password_hash.empty()) {
    std::cerr << "zolo-media-gateway: refusing to listen on " << config.address
              << " without a password: set [Gateway] password_hash (see --hash-password) or "
                 "listen on 127.0.0.1\n";
    return 2;
  }

  // Without a database yet (a fresh appliance, an engine not up) the gateway still listens,
  // says so in /healthz and answers requests -108 until the library starts.
  config.library_ready = zm_init(false) == 0;
  if (!config.library_ready)
    std::cerr << "zolo-media-gateway: the media library did not start yet; retrying\n";
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  int status = 0;
  bool started = config.library_ready;
  {
    zolo::gateway::Gateway gateway(config);
    if (!gateway.Start(&problem)) {
      std::cerr << "zolo-media-gateway: " << problem << "\n";
      status = 1;
    } else {
      auto quit = [](gpointer data) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop*>(data));
        return G_SOURCE_REMOVE;
      };
      g_unix_signal_add(SIGTERM, quit, loop);
      g_unix_signal_add(SIGINT, quit, loop);
      std::printf("zolo-media-gateway listening on %s port %d\n", config.address.c_str(),
                  gateway.port());
      std::fflush(stdout);
      g_main_loop_run(loop);
      gateway.Stop();
      started = gateway.library_ready();
    }
  }
  g_main_loop_unref(loop);
  if (started) zm_release();
  return status;
}
