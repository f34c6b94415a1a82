#include "Kw/KwGuardedCall.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <string>
#include <typeinfo>

#include "Kw/Helper/KwLogSystem.h"

namespace {

std::atomic<unsigned int> g_count{0};

void Push(const char* place, const char* detail, const char* text) {
    const bool hasDetail = detail != nullptr && *detail != '\0';
    KwLogSystem::Push("exception in %s%s%s: %s", place, hasDetail ? " " : "", hasDetail ? detail : "", text);
}

// For exceptions that carry no text.
void PushType(const char* place, const char* detail) {
    const std::type_info* type = abi::__cxa_current_exception_type();
    const char* name = type == nullptr ? "of an unknown type" : type->name();
    int status = 0;
    char* readable = type == nullptr ? nullptr : abi::__cxa_demangle(name, nullptr, nullptr, &status);
    Push(place, detail, readable == nullptr ? name : readable);
    std::free(readable);
}

}  // namespace

void Kw_ReportException(const char* place, const char* detail) noexcept {
    g_count.fetch_add(1, std::memory_order_relaxed);
    // A log function of the host may throw in its turn, and nobody is left to hear of it.
    try {
        try {
            throw;
        } catch (const std::exception& exception) {
            Push(place, detail, exception.what());
        } catch (const std::string& text) {
            Push(place, detail, text.c_str());
        } catch (const char* text) {
            Push(place, detail, text == nullptr ? "" : text);
        } catch (...) {
            PushType(place, detail);
        }
    } catch (...) {
    }
}

unsigned int Kw_ExceptionCount() noexcept {
    return g_count.load(std::memory_order_relaxed);
}
