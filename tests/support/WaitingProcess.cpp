// A process that does nothing but exist under the name of its file: it says that it runs and waits for its end.

#include <unistd.h>

int main() {
  if (write(STDOUT_FILENO, "r", 1) != 1) {
    return 1;
  }
  close(STDOUT_FILENO);
  for (;;) {
    pause();
  }
}
