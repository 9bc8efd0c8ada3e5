/* Compiled as C: the public header must stay valid C, and the library must be
 * usable from C.  Given a program file as argument, opens it and reads one block. */
#include "zqx/zqxsdk.h"

#include <stdio.h>
#include <string.h>

static int Check(int condition, const char* what)
{
    if (!condition)
        fprintf(stderr, "failed: %s\n", what);
    return condition ? 0 : 1;
}

int main(int argc, char** argv)
{
    int failures = 0;
    failures += Check(ZQXGetVersion() == ZQX_SDK_VERSION, "version matches the header");
    failures += Check(strcmp(ZQXStatusName(ZQX_ERR_DAMAGED), "ZQX_ERR_DAMAGED") == 0, "status name");
    failures += Check(strcmp(ZQXStatusName(12345), "ZQX_UNKNOWN_STATUS") == 0, "unknown status name");

    static const char16_t missing[] = {'/', 'n', 'o', '/', 's', 'u', 'c', 'h', '.', 'z', 'q', 0};
    ZQXHANDLE h = 0;
    failures += Check(ZQXOpenFileWinW(&h, missing) == ZQX_ERR_NO_FILE, "missing file");
    failures += Check(ZQXCloseFile(h) == ZQX_ERR_BAD_HANDLE, "handle 0 is invalid");

    if (argc > 1) {
        char16_t wide[1024];
        size_t n = strlen(argv[1]);
        if (n >= 1024)
            return 2;
        for (size_t i = 0; i <= n; ++i)
            wide[i] = (char16_t)(unsigned char)argv[1][i];
        failures += Check(ZQXOpenFileWinW(&h, wide) == ZQX_OK, "open the given program");
        int32_t type = 0;
        failures += Check(ZQXGetFileType(h, &type) == ZQX_OK && type >= 1 && type <= 5, "file type");
        uint8_t block[ZQX_MAX_BLOCK_BYTES];
        uint32_t length = 0;
        failures +=
            Check(ZQXGetEncodedAudio(h, block, sizeof block, &length) == ZQX_OK && length > 0, "a block");
        failures += Check(ZQXCloseFile(h) == ZQX_OK, "close");
    }
    return failures == 0 ? 0 : 1;
}
