#include "Utility/Generic/Portable/transcodercache.h"

#include "Utility/Generic/Portable/SUPOSBase.h"
#include "sbtables.h"
#include "transcodersbtable.h"
#include "transcodingimplutf16.h"
#include "transcodingimplutf8.h"

#include <cstdio>
#include <iterator>

namespace sup::transcodeimpl {

namespace {

constexpr int kDefaultCodePage = 1252;

constexpr SUPTranscodingTable kBuiltInTables[] = {
    {65001, L"int:utf-8", nullptr, TranscoderImplUTF8::CreateTranscoderTable, 0},
    {1200, L"int:utf-16be", nullptr, TranscoderImplUTF16BE::CreateTranscoderTable, 0},
    {1201, L"int:utf-16le", nullptr, TranscoderImplUTF16LE::CreateTranscoderTable, 0},
    {28591, L"int:iso-8859-1", cpISO8859_1, TranscoderSBTable<256, 256, false>::CreateTranscoderTable, 0},
    {28592, L"int:iso-8859-2", cpISO8859_2, TranscoderSBTable<161, 734, false>::CreateTranscoderTable, 0},
    {28593, L"int:iso-8859-3", cpISO8859_3, TranscoderSBTable<161, 730, false>::CreateTranscoderTable, 0},
    {28596, L"int:iso-8859-6", cpISO8859_6, TranscoderSBTable<161, 1619, false>::CreateTranscoderTable, 0},
    {28597, L"int:iso-8859-7", cpISO8859_7, TranscoderSBTable<161, 975, true>::CreateTranscoderTable, 0},
    {285915, L"int:iso-8859-15", cpISO8859_15, TranscoderSBTable<164, 8365, false>::CreateTranscoderTable, 0},
    {1252, L"int:1252", cpWin1252, TranscoderSBTable<128, 733, true>::CreateTranscoderTable, 0},
    {38598, L"int:iso-8859-8-i", cpISO8859_8_i, TranscoderSBTable<161, 1515, true>::CreateTranscoderTable, 0},
};
static_assert(std::size(kBuiltInTables) == knTables, "the header tells the number of rows");

} // namespace

TranscoderCache::TranscoderCache(const SUPTranscodingTable* table, unsigned int count) {
    try {
        for (const SUPTranscodingTable* row = table; row != table + count; ++row) {
            TranscoderImplBase*& entry = m_transcoders[row->nCodePage];
            entry = row->fFactory(row->pCodeMappings, row->nFactoryParam);
        }
    } catch (...) {
        destroyAll();
        throw;
    }
}

TranscoderCache::~TranscoderCache() { destroyAll(); }

void TranscoderCache::destroyAll() noexcept {
    for (const auto& entry : m_transcoders) {
        delete entry.second;
    }
}

TranscoderImplBase* TranscoderCache::Find(int codePage) const {
    const auto found = m_transcoders.find(codePage);
    return found == m_transcoders.end() ? nullptr : found->second;
}

TranscoderImplBase* TranscoderCache::getTranscoder(int codePage) {
    if (codePage == 0) {
        codePage = kDefaultCodePage;
    }
    if (TranscoderImplBase* const found = GetTranscoderCache()->Find(codePage)) {
        return found;
    }
    char text[32] = {};
    std::snprintf(text, sizeof(text), "%d", codePage);
    UtilityPortableErrorMessageManager::Get(nullptr, false)
        ->ThrowErrorMessage(UtilityPortableErrorMessageManager::E_Portable_EncodingUnsupported, text,
                            nullptr);
    return nullptr;
}

TranscoderCache* GetTranscoderCache() {
    static TranscoderCache cache(kBuiltInTables, knTables);
    return &cache;
}

} // namespace sup::transcodeimpl
