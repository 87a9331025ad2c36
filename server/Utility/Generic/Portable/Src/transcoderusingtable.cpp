#include "transcoderusingtable.h"

#include "Utility/Generic/Portable/SUPOSBase.h"
#include "kernels/utf8.h"

#include <algorithm>
#include <cstring>

namespace sup::transcodeimpl {

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr std::size_t kCodeUnits = 0x10000;
constexpr std::size_t kBlock = 256;
constexpr std::size_t kMostEntries = 0x10000; // an entry's index of another has 16 bits
constexpr std::size_t kBytesKept = 4;
constexpr const char* kThisFile = "server/Utility/Generic/Portable/Src/transcoderusingtable.cpp";
constexpr int kAllocationLine = 21;

std::size_t valueOf(char byte) { return static_cast<unsigned char>(byte); }

} // namespace

TranscoderUsingTable::TranscoderUsingTable(const UnicodeMultibyteMapping* table, std::size_t identityCount)
    : m_vPrimaryUnicode(kCodeUnits, goo{}), m_vMBState(kBlock, MBCharState{}), m_nMBFactor(1) {
    for (std::size_t byte = 0; byte < std::min(identityCount, kBlock); ++byte) {
        m_vMBState[byte].eState = kUnicodeChar;
        m_vMBState[byte].wUnicodeChar = static_cast<wchar_t>(byte);
    }
    bool isFull = false;
    for (const UnicodeMultibyteMapping* row = table; row->eDirection != kCP_End; ++row) {
        if (row->eDirection != kCP_MBToUnicode) {
            AddUnicodeMapping(*row);
        }
        if (row->eDirection != kCP_UnicodeToMB && !AddMBMapping(*row)) {
            isFull = true;
        }
    }
    if (isFull) {
        UtilityPortableErrorMessageManager::Get(nullptr, false)
            ->ThrowErrorMessage(UtilityPortableErrorMessageManager::E_Portable_BadF, nullptr, nullptr);
    }
}

TranscoderImplBase* TranscoderUsingTable::CreateTranscoderTable(const UnicodeMultibyteMapping* table,
                                                                std::size_t identityCount) {
    return new (kThisFile, kAllocationLine) TranscoderUsingTable(table, identityCount);
}

void TranscoderUsingTable::AddUnicodeMapping(const UnicodeMultibyteMapping& row) {
    m_nMBFactor = std::max<std::size_t>(m_nMBFactor, row.nMBChars);
    const auto unit = static_cast<char32_t>(row.wUnicodeChar);
    if (unit < kCodeUnits) {
        goo& entry = m_vPrimaryUnicode[unit];
        entry = goo{};
        std::memcpy(entry.mbs, row.cMBChars, std::min<std::size_t>(row.nMBChars, kBytesKept));
    }
}

// False, with nothing changed, when the machine has no room for the blocks that the row needs.
bool TranscoderUsingTable::AddMBMapping(const UnicodeMultibyteMapping& row) {
    if (row.nMBChars == 0) {
        return true;
    }
    const std::size_t leads = row.nMBChars - std::size_t{1};
    std::size_t base = 0;
    for (std::size_t i = 0; i < leads; ++i) {
        const std::size_t index = base + valueOf(row.cMBChars[i]);
        if (m_vMBState[index].eState != kJumpTo) {
            // From here on every lead byte needs a block of its own.
            if (m_vMBState.size() + (leads - i) * kBlock > kMostEntries) {
                return false;
            }
            m_vMBState.resize(m_vMBState.size() + kBlock, MBCharState{});
            MBCharState& lead = m_vMBState[index];
            lead.eState = kJumpTo;
            lead.wUnicodeChar = 0;
            lead.nGoto = static_cast<unsigned int>(m_vMBState.size() - kBlock) & 0xFFFFU;
        }
        base = m_vMBState[index].nGoto;
    }
    MBCharState& last = m_vMBState[base + valueOf(row.cMBChars[leads])];
    last.eState = kUnicodeChar;
    last.wUnicodeChar = row.wUnicodeChar;
    return true;
}

auto TranscoderUsingTable::multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                              size_type dstLen, state* /*ctx*/) const -> size_type {
    const MBCharState* const machine = m_vMBState.data();
    wide_char* const start = dst;
    const wide_char* const dstEnd = dst + dstLen;
    std::size_t base = 0;
    for (const char* const end = src + srcLen; src != end; ++src) {
        const MBCharState& entry = machine[base + valueOf(*src)];
        if (entry.eState == kJumpTo) {
            base = entry.nGoto;
            continue;
        }
        if (dst == dstEnd) {
            return kTooSmall;
        }
        *dst++ = entry.eState == kUnicodeChar ? entry.wUnicodeChar : L'?';
        base = 0;
    }
    if (base != 0) {
        if (dst == dstEnd) {
            return kTooSmall;
        }
        *dst++ = L'?';
    }
    return static_cast<size_type>(dst - start);
}

// Null when the unit has no bytes of its own.
auto TranscoderUsingTable::mappingOf(wide_char unit) const noexcept -> const goo* {
    const auto index = static_cast<char32_t>(unit);
    return index < kCodeUnits && m_vPrimaryUnicode[index].x != 0 ? &m_vPrimaryUnicode[index] : nullptr;
}

template <bool bCallback>
auto TranscoderUsingTable::encode(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                  callback cb, callbackParam cbParam) const -> size_type {
    const wide_char* const end = src + srcLen;
    char* const start = dst;
    const char* const dstEnd = dst + dstLen;
    while (src != end) {
        const wide_char unit = *src;
        if (unit < 0x80) { // negative units too: their low byte
            if (dst == dstEnd) {
                return kTooSmall;
            }
            *dst++ = static_cast<char>(unit);
            ++src;
            continue;
        }
        if (const goo* const mapping = mappingOf(unit)) {
            for (std::size_t i = 0; i < kBytesKept && mapping->mbs[i] != 0; ++i) {
                if (dst == dstEnd) {
                    return kTooSmall;
                }
                *dst++ = mapping->mbs[i];
            }
            ++src;
            continue;
        }
        const bool isPair = kernels::isHighSurrogate(static_cast<char32_t>(unit)) && end - src > 1 &&
                            kernels::isLowSurrogate(static_cast<char32_t>(src[1]));
        const std::size_t units = isPair ? 2 : 1;
        const auto room = static_cast<size_type>(dstEnd - dst);
        if constexpr (bCallback) {
            const std::size_t written = cb(cbParam, src, units, dst, room);
            if (written > room) { // -1 too
                return kTooSmall;
            }
            dst += written;
            if (room - written < static_cast<size_type>(end - src) - units) {
                return kTooSmall;
            }
        } else {
            if (room == 0) {
                return kTooSmall;
            }
            *dst++ = '?';
        }
        src += units;
    }
    return static_cast<size_type>(dst - start);
}

auto TranscoderUsingTable::unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                              size_type dstLen, state* /*ctx*/, callback cb,
                                              callbackParam cbParam) const -> size_type {
    if (dstLen < srcLen) {
        return kTooSmall;
    }
    return cb == nullptr ? encode<false>(src, srcLen, dst, dstLen, cb, cbParam)
                         : encode<true>(src, srcLen, dst, dstLen, cb, cbParam);
}

auto TranscoderUsingTable::getMultibyteFactor() const -> size_type { return m_nMBFactor; }

bool TranscoderUsingTable::isUnicodeCompletelyRepresentable() const { return false; }

} // namespace sup::transcodeimpl
