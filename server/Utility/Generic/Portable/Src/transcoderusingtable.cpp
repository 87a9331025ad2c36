#include "transcoderusingtable.h"

#include "Utility/Generic/Portable/SUPOSBase.h"
#include "kernels/kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace sup::transcodeimpl {

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr std::size_t kCodeUnits = 0x10000;
constexpr std::size_t kBlock = 256;
constexpr std::size_t kMostEntries = 0x10000; // an entry's index of another has 16 bits
constexpr std::size_t kBytesKept = 4;
// Texts up to this length go by the tables: choosing a loop would take longer.
constexpr std::size_t kShortText = 4;
// What a loop does not know seldom comes alone: so much goes by the tables.
constexpr std::size_t kBytesByMachine = 64;
constexpr std::size_t kUnitsByTable = 16;
constexpr wchar_t kUnmappable = L'?';
constexpr const char* kThisFile = "server/Utility/Generic/Portable/Src/transcoderusingtable.cpp";
constexpr int kAllocationLine = 21;

std::size_t valueOf(char byte) { return static_cast<unsigned char>(byte); }

} // namespace

TranscoderUsingTable::TranscoderUsingTable(const UnicodeMultibyteMapping* table, std::size_t identityCount)
    : m_vPrimaryUnicode(kCodeUnits, goo{}), m_vMBState(kBlock, MBCharState{}), m_nMBFactor(1),
      m_fitsEncodingLoop(true) {
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
    pack();
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

void TranscoderUsingTable::pack() {
    m_decoding.reset(m_vMBState.size() / kBlock);
    for (std::size_t i = 0; i < m_vMBState.size(); ++i) {
        const MBCharState& entry = m_vMBState[i];
        if (entry.eState != kJumpTo) {
            const wchar_t unit = entry.eState == kUnicodeChar ? entry.wUnicodeChar : kUnmappable;
            m_decoding.setUnit(i / kBlock, i % kBlock, static_cast<std::uint32_t>(unit));
        } else if (i < kBlock) {
            m_decoding.setLead(i, entry.nGoto / kBlock);
        }
    }
    m_decoding.finish();
    for (const goo& entry : m_vPrimaryUnicode) {
        const char* const firstZero = std::find(entry.mbs, entry.mbs + kBytesKept, '\0');
        const bool endsThere =
            std::count(firstZero, entry.mbs + kBytesKept, '\0') == entry.mbs + kBytesKept - firstZero;
        m_fitsEncodingLoop = m_fitsEncodingLoop && endsThere;
    }
}

auto TranscoderUsingTable::multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                              size_type dstLen, state* /*ctx*/) const -> size_type {
    kernels::MultibyteProgress at{0, 0};
    while (at.read != srcLen) {
        if (srcLen - at.read > kShortText) {
            const kernels::MultibyteProgress run = kernels::kernels().decodeMultibyte(
                m_decoding, src + at.read, srcLen - at.read, dst + at.written, dstLen - at.written);
            at = {at.read + run.read, at.written + run.written};
        }
        if (!decodeByMachine(src, srcLen, dst, dstLen, at)) {
            return kTooSmall;
        }
    }
    return at.written;
}

// Goes on after whole characters, to the end of a character some bytes on or of the text. False when a unit
// has no room.
bool TranscoderUsingTable::decodeByMachine(const char* src, size_type srcLen, wide_char* dst,
                                           size_type dstLen, kernels::MultibyteProgress& at) const noexcept {
    const MBCharState* const machine = m_vMBState.data();
    const size_type stop = at.read + std::min(srcLen - at.read, kBytesByMachine);
    std::size_t base = 0;
    for (; at.read < stop || (base != 0 && at.read != srcLen); ++at.read) {
        const MBCharState& entry = machine[base + valueOf(src[at.read])];
        if (entry.eState == kJumpTo) {
            base = entry.nGoto;
            continue;
        }
        if (at.written == dstLen) {
            return false;
        }
        dst[at.written++] = entry.eState == kUnicodeChar ? entry.wUnicodeChar : kUnmappable;
        base = 0;
    }
    if (base != 0) {
        if (at.written == dstLen) {
            return false;
        }
        dst[at.written++] = kUnmappable;
    }
    return true;
}

// Null when the unit has no bytes of its own.
auto TranscoderUsingTable::mappingOf(wide_char unit) const noexcept -> const goo* {
    const auto index = static_cast<char32_t>(unit);
    return index < kCodeUnits && m_vPrimaryUnicode[index].x != 0 ? &m_vPrimaryUnicode[index] : nullptr;
}

// Goes some units on. False when the conversion ends with -1.
template <bool bCallback>
bool TranscoderUsingTable::encodeByTable(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                         callback cb, callbackParam cbParam,
                                         kernels::MultibyteProgress& at) const {
    const size_type stop = at.read + std::min(srcLen - at.read, kUnitsByTable);
    while (at.read < stop) {
        const wide_char unit = src[at.read];
        if (unit < 0x80) { // negative units too: their low byte
            if (at.written == dstLen) {
                return false;
            }
            dst[at.written++] = static_cast<char>(unit);
            ++at.read;
            continue;
        }
        if (const goo* const mapping = mappingOf(unit)) {
            for (std::size_t i = 0; i < kBytesKept && mapping->mbs[i] != 0; ++i) {
                if (at.written == dstLen) {
                    return false;
                }
                dst[at.written++] = mapping->mbs[i];
            }
            ++at.read;
            continue;
        }
        const bool isPair = kernels::isHighSurrogate(static_cast<char32_t>(unit)) && srcLen - at.read > 1 &&
                            kernels::isLowSurrogate(static_cast<char32_t>(src[at.read + 1]));
        const std::size_t units = isPair ? 2 : 1;
        const size_type room = dstLen - at.written;
        if constexpr (bCallback) {
            const std::size_t written = cb(cbParam, src + at.read, units, dst + at.written, room);
            if (written > room) { // -1 too
                return false;
            }
            at.written += written;
            if (room - written < srcLen - at.read - units) {
                return false;
            }
        } else {
            if (room == 0) {
                return false;
            }
            dst[at.written++] = static_cast<char>(kUnmappable);
        }
        at.read += units;
    }
    return true;
}

auto TranscoderUsingTable::unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                              size_type dstLen, state* /*ctx*/, callback cb,
                                              callbackParam cbParam) const -> size_type {
    if (dstLen < srcLen) {
        return kTooSmall;
    }
    const kernels::MultibyteEncoding table{reinterpret_cast<const char*>(m_vPrimaryUnicode.data())};
    kernels::MultibyteProgress at{0, 0};
    while (at.read != srcLen) {
        if (m_fitsEncodingLoop && srcLen - at.read > kShortText) {
            const kernels::MultibyteProgress run = kernels::kernels().encodeMultibyte(
                table, src + at.read, srcLen - at.read, dst + at.written, dstLen - at.written);
            at = {at.read + run.read, at.written + run.written};
        }
        const bool goesOn = cb == nullptr ? encodeByTable<false>(src, srcLen, dst, dstLen, cb, cbParam, at)
                                          : encodeByTable<true>(src, srcLen, dst, dstLen, cb, cbParam, at);
        if (!goesOn) {
            return kTooSmall;
        }
    }
    return at.written;
}

auto TranscoderUsingTable::getMultibyteFactor() const -> size_type { return m_nMBFactor; }

bool TranscoderUsingTable::isUnicodeCompletelyRepresentable() const { return false; }

} // namespace sup::transcodeimpl
