/* A native process that only waits to be killed; tests give it any name and
   command line through a symlink and execv. Descriptor 3, when open, is the
   starter's "ready" pipe: closing it says the program is loaded and holds no
   descriptor but 0, 1 and 2. */
#include <unistd.h>

int main(void) {
    close(3);
    for (;;) {
        pause();
    }
}
