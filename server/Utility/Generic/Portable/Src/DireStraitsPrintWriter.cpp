#include "Utility/Generic/Portable/DireStraitsPrintWriter.h"

#include "DigitsText.h"
#include "Wraps.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cwchar>
#include <fcntl.h>
#include <limits>
#include <sys/uio.h>
#include <unistd.h>

namespace sup {

namespace {

constexpr std::uintptr_t kPageSize = 4096;
constexpr std::size_t kTextProbe = 64; // bytes of a zero-terminated text that must be readable

// A pipe takes a byte from memory only when it is there.
bool isByteReadableThroughPipe(const void* p) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return false;
    }
    const bool readable = ::write(ends[1], p, 1) == 1;
    ::close(ends[0]);
    ::close(ends[1]);
    return readable;
}

// Asks the kernel for one byte. "/dev/null" takes any address without a look, so it cannot be asked.
bool isByteReadable(std::uintptr_t address) {
    char byte = 0;
    const iovec local = {&byte, 1};
    const iovec remote = {reinterpret_cast<void*>(address), 1};
    if (::process_vm_readv(::getpid(), &local, 1, &remote, 1, 0) == 1) {
        return true;
    }
    // Some sandboxes forbid the call.
    return errno != EFAULT && isByteReadableThroughPipe(reinterpret_cast<const void*>(address));
}

} // namespace

DireStraitsPrintWriter::DireStraitsPrintWriter(Mode mode, PrintWriterBase& subWriter, int capacity)
    : m_rSubWriter(subWriter), m_eMode(mode), m_nCapacity(capacity) {
    if (m_eMode == kDireStraits) {
        m_nFileDesc = ::open("/dev/null", O_WRONLY);
    }
}

DireStraitsPrintWriter::~DireStraitsPrintWriter() {
    if (m_eMode == kDireStraits && m_nFileDesc != -1) {
        ::close(m_nFileDesc);
    }
}

bool DireStraitsPrintWriter::isAddressReadable(const void* p, size_type length) const {
    if (m_eMode != kDireStraits || length == 0) {
        return true;
    }
    const auto first = reinterpret_cast<std::uintptr_t>(p);
    if (first < kPageSize || m_nFileDesc == -1 ||
        length - 1 > std::numeric_limits<std::uintptr_t>::max() - first) {
        return false;
    }
    // One byte of each page tells for all of it.
    const std::uintptr_t last = first + (length - 1);
    for (std::uintptr_t at = first;; at = (at & ~(kPageSize - 1)) + kPageSize) {
        if (!isByteReadable(at)) {
            return false;
        }
        if (last - at < kPageSize - (at & (kPageSize - 1))) {
            return true;
        }
    }
}

BRIM_WRAPS bool DireStraitsPrintWriter::isRangeReadable(const wchar_t* first, const wchar_t* last) const {
    // A range that runs backwards has a length that no memory has.
    return isAddressReadable(first, static_cast<size_type>(last - first) * sizeof(wchar_t));
}

void DireStraitsPrintWriter::writeUnreadable(const wchar_t* what) { m_rSubWriter << what; }

template <class Value, class Write>
DireStraitsPrintWriter& DireStraitsPrintWriter::writeValue(const Value& value, Write write) {
    if (m_nCapacity >= 1) {
        if (isAddressReadable(&value, sizeof(value))) {
            write(value);
        } else {
            writeUnreadable(L"<unreadable>");
        }
    }
    return *this;
}

void DireStraitsPrintWriter::appendAndMaintainCapacity(const wchar_t* text, size_type length) {
    if (length <= static_cast<size_type>(m_nCapacity)) {
        m_rSubWriter.addChars(text, length);
        m_nCapacity -= static_cast<int>(length);
    } else {
        appendStringWhichIsTooLong(text);
    }
}

void DireStraitsPrintWriter::appendStringWhichIsTooLong(const wchar_t* text) {
    m_rSubWriter.addChars(text, static_cast<size_type>(m_nCapacity));
    m_nCapacity = 0;
    m_rSubWriter.addChars(kDigitsAndTruncationMark + kTruncationMark, kTruncationMarkLength);
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const int& value) {
    return writeValue(value, [this](int v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const unsigned int& value) {
    return writeValue(value, [this](unsigned int v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const long& value) {
    return writeValue(value, [this](long v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const unsigned long& value) {
    return writeValue(value, [this](unsigned long v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const long long& value) {
    return writeValue(value, [this](long long v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const unsigned long long& value) {
    return writeValue(value, [this](unsigned long long v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const bool& value) {
    return writeValue(value, [this](bool v) { m_rSubWriter << v; });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const String<wchar_t>& s) {
    if (m_nCapacity < 1) {
        return *this;
    }
    if (isAddressReadable(&s, sizeof(s))) {
        const auto* const data = s.diagnosticGetSharedRepresentation();
        if (data == nullptr) {
            return *this;
        }
        if (isAddressReadable(data, sizeof(*data)) && isRangeReadable(data->m_pStart, data->m_pFinish)) {
            appendAndMaintainCapacity(data->m_pStart, data->length());
            return *this;
        }
    }
    writeUnreadable(L"<unreadable BrimWString>");
    return *this;
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const RefStringTemplate<wchar_t>& ref) {
    if (m_nCapacity < 1) {
        return *this;
    }
    if (isAddressReadable(&ref, sizeof(ref)) && isRangeReadable(ref.begin(), ref.end())) {
        appendAndMaintainCapacity(ref.begin(), ref.length());
    } else {
        writeUnreadable(L"<unreadable RefString>");
    }
    return *this;
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const wchar_t* text) {
    if (m_nCapacity < 1 || (text == nullptr && m_eMode == kCalmSeas)) {
        return *this;
    }
    if (!isAddressReadable(text, kTextProbe)) {
        writeUnreadable(L"<unreadable>");
        return *this;
    }
    // No more than fits is looked at, page by page, so that a text without an end leads nowhere.
    const auto most = static_cast<size_type>(m_nCapacity) + 1;
    size_type length = 0;
    while (length < most && isAddressReadable(text + length, sizeof(wchar_t))) {
        const auto address = reinterpret_cast<std::uintptr_t>(text + length);
        const size_type toPageEnd = (kPageSize - address % kPageSize) / sizeof(wchar_t);
        const size_type n = std::min(most - length, std::max<size_type>(toPageEnd, 1));
        const wchar_t* const zero = std::wmemchr(text + length, L'\0', n);
        if (zero != nullptr) {
            appendAndMaintainCapacity(text, static_cast<size_type>(zero - text));
            return *this;
        }
        length += n;
    }
    if (length < most) {
        writeUnreadable(L"<unreadable>");
    } else {
        appendStringWhichIsTooLong(text);
    }
    return *this;
}

DireStraitsPrintWriter& DireStraitsPrintWriter::operator<<(const StringBufferBaseTemplate<wchar_t>& buffer) {
    if (m_nCapacity < 1) {
        return *this;
    }
    // The place of the zero counts too: a zeroed object is an empty buffer at address 0.
    if (isAddressReadable(&buffer, sizeof(buffer)) && isRangeReadable(buffer.begin(), buffer.end()) &&
        isAddressReadable(buffer.end(), sizeof(wchar_t))) {
        appendAndMaintainCapacity(buffer.c_str(), buffer.length());
    } else {
        writeUnreadable(L"<unreadable>");
    }
    return *this;
}

DireStraitsPrintWriter& DireStraitsPrintWriter::appendNumberAsHex(const unsigned int& value) {
    return writeValue(value, [this](unsigned int v) { m_rSubWriter.appendNumberAsHex(v); });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::appendNumberAsHex(const int& value) {
    return writeValue(value, [this](int v) { m_rSubWriter.appendNumberAsHex(static_cast<unsigned int>(v)); });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::appendNumberAsHex(const unsigned long& value) {
    return writeValue(value, [this](unsigned long v) { m_rSubWriter.appendNumberAsHex(v); });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::appendNumberAsHex(const long& value) {
    return writeValue(value,
                      [this](long v) { m_rSubWriter.appendNumberAsHex(static_cast<unsigned long>(v)); });
}

DireStraitsPrintWriter& DireStraitsPrintWriter::append(size_type n, wchar_t c) {
    if (m_nCapacity >= 1) {
        m_rSubWriter.append(n, c);
    }
    return *this;
}

void DireStraitsPrintWriter::flush() { m_rSubWriter.flush(); }

void DireStraitsPrintWriter::outputEndl() {
    if (m_nCapacity >= 1) {
        m_rSubWriter.outputEndl(m_eMode == kDireStraits ? PrintWriterBase::kFlush
                                                        : PrintWriterBase::kOptionalFlush);
    }
}

} // namespace sup
