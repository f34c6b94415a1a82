// KwRes: the program's folder, the numbered resource paths, and what is done with paths and whole files.
//
// A relative name is looked for under the resource paths in their order; a name with a drive (its second
// character is `:`), and every name while no resource path is set, is used as it is. On systems without
// drives a name that begins at the root counts as one with a drive; looked for to be read, it is tried under
// the resource paths first and at the root after them.
// Paths have `\` as their separator inside the library and may be given with `/`. They are UTF-8; the
// wide forms take the same names in UTF-16. `out` buffers hold 1024 characters (kPathSize); what does not
// fit is refused. Null and empty names fail.
// Thread-safety: everything from any thread, but paths are set (SetResPath, SetProcess...) while no
// other thread opens files by name, typically at the start.
#pragma once

#include <string>
#include <vector>

#include "Kw/Res/KwPackSource.h"

class KwBuffer;

class KW_API KwRes {
public:
    static constexpr int kPathSize = 1024;    // characters of a path with its terminator
    static constexpr int kResPathCount = 10;  // slots of the resource-path table

    static char GetCharPath() { return '\\'; }
    static char GetCharPath2() { return '/'; }

    // --- Resource paths ---

    // Sets a slot of the table, -1 for the first free one. An empty (or null) path is the process path; one with
    // a drive is taken as it is, any other is appended to the process path. A folder that does not exist is
    // created. False, with the table as it was, for a slot above 9, a full table, a path that does not
    // fit its slot with a `\` behind it, and a folder that cannot be created. One line is logged for a path that
    // was set, created or not found.
    static bool SetResPath(const char* path, int slot);
    // The path of a slot with a `\` at its end, empty when it is free; null outside 0 to 9. Valid until
    // the slot is set again.
    static const char* GetResPath(int slot);
    // The slots in use before the first free one: the ones where names are looked for.
    static int GetResPathNum();

    // --- The program ---

    // The folder of the running program with a `\` at its end, and its file name; taken from the system
    // when first needed. Valid until set again. The setters give false for null and for what does not fit.
    static const char* GetProcessPath();
    static const char* GetProcessName();
    static bool SetProcessFullPath(const char* path);  // folder and name; empty: asks the system again
    static bool SetProcessPath(const char* path);
    static bool SetProcessName(const char* name);
    // The arguments behind the program's name, in UTF-8 as every path here is. `argc` and `argv` are main's, which on
    // Windows have lost what the machine's code page does not know: there the system is asked.
    static std::vector<std::string> GetArguments(int argc, const char* const* argv);
    // The environment variable "SyncProjectPath" as it was when first asked for; null when it was not set.
    static const char* GetSyncProjectPath();

    // --- Finding files and folders ---

    // The path that `name` has under one resource path, whether it exists or not; slot -1 is the first one,
    // and no path at all while none is set. False for a slot that is not in use.
    static bool GetFullPath(char* out, const char* name, int slot);
    static bool GetFullPath(KwWChar* out, const KwWChar* name, int slot);
    // The path of the first readable file that `name` leads to.
    static bool GetFullPathExist(char* out, const char* name);
    static bool GetFullPathExist(KwWChar* out, const KwWChar* name);
    // Whether `name` leads to a readable file (a folder is none); with `alsoPacks` the packs are asked after
    // the disk. The wide form asks the packs for the same name in UTF-8.
    static bool IsFileExist(const char* name, bool alsoPacks);
    static bool IsFileExist(const KwWChar* name, bool alsoPacks);
    // Whether the path, as it is, is a folder.
    static bool IsFolderExist(const char* path);
    static bool IsFolderExist(const KwWChar* path);
    // The path of the first that is found: `a`; the process name with `b` behind it, together below 64
    // characters; `c`. A null or empty text is passed over.
    static bool CheckFileExist(char* out, const char* a, const char* b, const char* c);
    static bool CheckFileExist(KwWChar* out, const KwWChar* a, const KwWChar* b, const KwWChar* c);
    static bool CheckFolderExist(char* out, const char* a, const char* b, const char* c);
    static bool CheckFolderExist(KwWChar* out, const KwWChar* a, const KwWChar* b, const KwWChar* c);

    // --- Whole files ---
    // Reading looks for the name as KwFile::Open does. Everything else takes the path as it is. A failure is
    // logged in one line; the wide forms of folder creation, renaming and removal print it on the console.

    // Reads a whole file into `buffer` and sets its fill mark; a file of 0 bytes is fine. The block is
    // kept when the file fits, else replaced. False, without a message of its own, when the file is not
    // found, cannot be read, has 4 GiB or more, or memory is out.
    static bool ReadFileToBuffer(const char* path, KwBuffer* buffer);
    static bool ReadFileToBuffer(const KwWChar* path, KwBuffer* buffer);
    // The same into a new block of exactly before + size + after bytes (at least 1): the content stands behind
    // `before` zero bytes, which count as filled, and before `after` zero bytes, which do not. So 0, 1
    // gives terminated text. False for negative numbers, too.
    static bool ReadFileToBufferAndResize(const char* path, KwBuffer* buffer, int before, int after);
    static bool ReadFileToBufferAndResize(const KwWChar* path, KwBuffer* buffer, int before, int after);

    // Writes a whole file. A failed or cut write leaves an old file as it was and no new one behind: the bytes
    // are written to a file beside it, flushed to the disk, and put in its place.
    static bool SaveFile(const char* path, const void* data, unsigned int size);
    static bool SaveFile(const KwWChar* path, const void* data, unsigned int size);
    // Removes a file; a folder is refused.
    static bool DeleteFileW(const char* path);
    static bool DeleteFileW(const KwWChar* path);
    // Removes a folder with everything in it; links in it are removed, not followed. Goes on past
    // what cannot be removed and then gives false. Each removal and each failure is logged.
    static bool DeleteFolder(const char* path);
    // Renames a file or folder, a file to another volume too. An existing target is an error.
    static bool RenameFile(const char* from, const char* to);
    static bool RenameFile(const KwWChar* from, const KwWChar* to);
    // Copies a file, replacing an existing target as SaveFile does.
    static bool CopyFileTo(const char* from, const char* to);
    static bool CopyFileTo(const KwWChar* from, const KwWChar* to);
    // The same, with its own message.
    static bool MoveFileW(const char* from, const char* to);
    static bool MoveFileW(const KwWChar* from, const KwWChar* to);

    // Makes the missing folders of a path from the character `start` on: each one that has a separator
    // behind it and, with `last`, the one that the path ends with. Paths of 256 bytes or more are refused.
    static bool CreateFolder(const char* path, bool last, int start);
    static bool CreateFolder(const KwWChar* path, bool last, int start);

    // Asks the pack system to load a file and to call back with it, on its own thread; see KwPackSource. False when
    // no pack system is open or it refuses, and then nobody is called.
    static bool LoadByThread(const std::string& name, KwPackLoaded callback);
    // The same for a KwPackLoadTarget, which gets a reference until it was called; false for other targets.
    static bool LoadByThread(const std::string& name, KwInf* target);

    // --- Path text ---

    // Tidies a path in place and returns its new length: `/` becomes `\`, runs of `\` become one, and each
    // `\..` removes itself and the folder before it. A `..` without a folder before it stays, but for one at
    // the root or right behind a drive, which goes. Every `#` is deleted from the path. A `len` below 0
    // takes the whole text. The text is terminated when it became shorter.
    static int MixPath(char* path, int len);
    // Appends `\` unless the text ends in a separator; an empty text becomes `\`. Returns the new length. The
    // buffer has room for one character more.
    static int CheckAddCharPathToDir(char* dir, int len);
    // Splits a path into its folder with the separator at its end, the bare name, and the extension with its
    // dot; together they are the path again. Each output may be null and holds kPathSize characters; what
    // does not fit is cut.
    static void ExtractPathName(const char* full, char* dir, char* name, char* ext);
    // The extension with its dot and the file name inside a path: pointers into the text, to its end when
    // there is none. A dot that begins a name begins no extension. `len` below 0 takes the whole text.
    static const char* FilterExt(const char* path, int len);
    static const char* FilterName(const char* path, int len);

    // The path as the system and other libraries take it (`/` on POSIX). False when it does not fit.
    static bool GetNativePath(char* out, const char* path);

    // Whether an environment variable is set; copies it to `out` unless that is null. False, with an
    // empty `out`, when it does not fit.
    static bool GetSystemVaries(const char* name, char* out);
};
