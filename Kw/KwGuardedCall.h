// KwGuardedCall: the library's edge towards code of the host that it calls on its own account. Internal.
//
// What leaves a thread body, an event, a timed event, a task, a command handler, a load request or a start-up hook is
// caught where the library called it, logged as "exception in PLACE: TEXT" and counted (KwOS::GetExceptionCount): it
// ends neither the process nor a thread of the library. What the host itself called passes through to it.
// Thread-safety: from any thread.
#pragma once

#include <cxxabi.h>

#include <type_traits>

// For use in a catch clause: logs and counts the exception that is being handled. `detail`, null for none, follows
// the place: "exception in command db.save: no such table".
void Kw_ReportException(const char* place, const char* detail) noexcept;
unsigned int Kw_ExceptionCount() noexcept;

// Calls `call()`; false when an exception left it. `detail` is a text, or what gives one when it is needed.
template <class Detail, class Call>
bool KwGuardedCall(const char* place, const Detail& detail, Call&& call) {
    try {
        call();
        return true;
    } catch (const abi::__forced_unwind&) {
        // The end of the thread, by pthread_exit or pthread_cancel: it must go on.
        throw;
    } catch (...) {
        if constexpr (std::is_invocable_v<Detail>) {
            Kw_ReportException(place, detail());
        } else {
            Kw_ReportException(place, detail);
        }
        return false;
    }
}
