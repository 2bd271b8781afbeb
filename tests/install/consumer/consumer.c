/* A host in C: links the installed library and calls it. */
#include <nimbrel/NimbrelEngine.h>
#include <string.h>

int main(int argc, char** argv) {
    if (argc != 2 || strcmp(argv[1], nimbrelVersion()) != 0) return 1;
    if (initEngine("key") != 1) return 2;
    if (loadPointCloudFile(L"/nowhere/at/all") != -1) return 3;
    if (strlen(nimbrelLastError()) == 0) return 4;
    shutdownEngine();
    return 0;
}
