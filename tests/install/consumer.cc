// A program outside the tree: builds against the installed headers and library only, and
// checks that the library it runs with is the one its headers describe.
#include <zolo/media.h>

#include <cstdio>
#include <cstring>

int main() {
  if (std::strcmp(zm_version(), ZM_VERSION_STRING) != 0) {
    std::printf("headers %s, library %s\n", ZM_VERSION_STRING, zm_version());
    return 1;
  }
  std::printf("libzolo_media %s consumer built; -4 means: %s\n", zm_version(), zm_strerror(-4));
  return 0;
}
