// CleanupPath() next to its model.
#include "fuzz_input.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "path_model.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

void fuzzOne(FuzzInput& input) {
    const std::wstring text = input.flip() ? input.restAsText() : input.text(L"//a.\\", 255);
    BrimString path = brimtest::brim(text);
    const BrimString shared = path;
    CleanupPath(path);
    ASSERT_EQ(brimtest::plain(path), brimtest::cleanedPath(text));
    ASSERT_EQ(brimtest::plain(shared), text);
}
