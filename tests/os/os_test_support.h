// What the tests of files and clocks share: temporary directories, system calls that a test answers itself,
// and the pointers of OSAbstraction put aside for a while.
#pragma once

#include "Utility/Generic/Portable/SUPOS.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <utility>

namespace brimtest {

/// The wide text of UTF-8, and back.
inline BrimString wide(const std::string& text) { return BaseStringUtil::StringFrom(text.c_str(), 65001); }
inline std::string narrow(const BrimString& text) {
    const sup::String<char> bytes = BaseStringUtil::StringToStdString(text, 65001);
    return {bytes.begin(), bytes.end()};
}

/// A directory that is removed with everything in it. operator/ gives paths in it.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    /// Without symbolic links.
    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    /// The wide text of a path in it.
    BrimString wide(const std::string& name) const { return brimtest::wide(*this / name); }
    /// Makes a directory, a file; returns its path.
    std::string addDirectory(const std::string& name) const;
    std::string addFile(const std::string& name, const std::string& content = "content") const;

private:
    std::string m_path;
};

std::string contentOf(const std::string& path);
mode_t permissionsOf(const std::string& path);

/// Comes back to the directory in which it was made, however that is named by then.
class KeepsWorkingDirectory {
public:
    KeepsWorkingDirectory();
    ~KeepsWorkingDirectory();
    KeepsWorkingDirectory(const KeepsWorkingDirectory&) = delete;
    KeepsWorkingDirectory& operator=(const KeepsWorkingDirectory&) = delete;

private:
    int m_descriptor;
};

/// Sets the file-creation mask while it lives.
class FileCreationMask {
public:
    explicit FileCreationMask(mode_t mask) : m_before(::umask(mask)) {}
    ~FileCreationMask() { ::umask(m_before); }
    FileCreationMask(const FileCreationMask&) = delete;
    FileCreationMask& operator=(const FileCreationMask&) = delete;

private:
    mode_t m_before;
};

/// System calls that the library makes through this program: the calling thread's answers, the real calls
/// while they are null.
struct SystemCalls {
    template <class F>
    using Answer = const std::function<F>*;

    static inline constinit thread_local Answer<int(const char*, int, mode_t)> open = nullptr;
    static inline constinit thread_local Answer<ssize_t(int, void*, std::size_t)> read = nullptr;
    static inline constinit thread_local Answer<ssize_t(int, const void*, std::size_t)> write = nullptr;
    static inline constinit thread_local Answer<int(int)> close = nullptr;
    static inline constinit thread_local Answer<int(const char*, mode_t)> mkdir = nullptr;
    static inline constinit thread_local Answer<int(struct timeval*)> gettimeofday = nullptr;
    static inline constinit thread_local Answer<int(const std::timespec*, std::timespec*)> nanosleep =
        nullptr;
};

/// Answers a system call of this thread while it lives. Inside the answer the call is the real one.
template <class F>
class Answering;

template <class R, class... Args>
class Answering<R(Args...)> {
public:
    using Slot = SystemCalls::Answer<R(Args...)>;

    Answering(Slot& slot, std::function<R(Args...)> answer)
        : m_slot(slot), m_answer([this, answer = std::move(answer)](Args... args) {
              m_slot = nullptr;
              const R result = answer(args...);
              m_slot = &m_answer;
              return result;
          }) {
        m_slot = &m_answer;
    }
    ~Answering() { m_slot = nullptr; }
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;

private:
    Slot& m_slot;
    std::function<R(Args...)> m_answer;
};

template <class F, class Answer>
Answering(const std::function<F>*&, Answer) -> Answering<F>;

/// Puts a function in the place of a pointer of OSAbstraction while it lives.
template <class F>
class Redirected {
public:
    Redirected(F*& pointer, F* replacement)
        : m_pointer(pointer), m_before(std::exchange(pointer, replacement)) {}
    ~Redirected() { m_pointer = m_before; }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

private:
    F*& m_pointer;
    F* m_before;
};

template <class F, class Replacement>
Redirected(F*&, Replacement) -> Redirected<F>;

} // namespace brimtest
