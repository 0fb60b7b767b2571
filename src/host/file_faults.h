#pragma once
// Fault injection for the file layer: a hook that Tessel::CFile asks before every read,
// write and flush. When it answers true the operation fails as the system would with
// EIO (-1, or false for a flush) and touches nothing. Meant for tests that prove how the
// store behaves on a failing disk; without a hook (the default) CFile only tests one
// atomic flag per call.

#include <functional>
#include <string>

namespace Tessel {

enum class FileOperation { Read, Write, Flush };

// true: fail this operation on the file at path.
using FileFaultHook = std::function<bool(FileOperation operation, const std::string& path)>;

// Installs the hook for the whole process; an empty hook removes it. Not to be changed
// while another thread is inside CFile.
void SetFileFaultHook(FileFaultHook hook);

// Whether the installed hook fails this operation; false without a hook.
bool FileFaultInjected(FileOperation operation, const std::string& path);

}  // namespace Tessel
