// A program outside the tree: builds against the installed headers and library only.
#include <zolo/media.h>

#include <cstdio>

int main() {
  std::printf("libzolo_media consumer built\n");
  return 0;
}
