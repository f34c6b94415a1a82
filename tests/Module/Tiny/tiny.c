// The source of fuzz/corpus/KwPeImage/tiny.dll: 3.5 KB with all that a loader of images must know. Built by
//   i686-w64-mingw32-dlltool -k -d numbers.def -l libnumbers.a
//   i686-w64-mingw32-gcc-posix -Os -w -shared -nostdlib -nostartfiles -fno-asynchronous-unwind-tables -fno-ident -s \
//     -Wl,-e,_Entry@12,--no-insert-timestamp tiny.c tiny.def -L. -lnumbers -lkernel32 -o tiny.dll
#include <windows.h>
extern __declspec(dllimport) void* __stdcall ImportedByNumber(void);
static int state;
static int callbacks;
static int* const pointers[] = {&state, &callbacks};
__declspec(dllexport) int TinyState(void) { return *pointers[0] + 10 * *pointers[1]; }
__declspec(dllexport) unsigned TinyTicks(void) { return GetTickCount() != 0; }
__declspec(dllexport) int TinyPort(void) { return ((unsigned short (__stdcall*)(unsigned short))ImportedByNumber)(0x1234); }
static void NTAPI Callback(void* base, DWORD reason, void* reserved) { if (reason == DLL_PROCESS_ATTACH) ++callbacks; }
static PIMAGE_TLS_CALLBACK const list[] = {Callback, 0};
static DWORD tls_index;
const IMAGE_TLS_DIRECTORY32 _tls_used = {0, 0, (DWORD)&tls_index, (DWORD)list, 0, 0};
BOOL WINAPI Entry(HINSTANCE base, DWORD reason, void* reserved) { if (reason == DLL_PROCESS_ATTACH) state = 1; return TRUE; }
