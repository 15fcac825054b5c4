#include <gtest/gtest.h>

#include "pin/secure_cells.h"

namespace {

platform::WideString Plain(const SecureCells& cells) {
    auto text = cells.GetPlainText();
    return platform::WideString(text.get(), cells.size());
}

// Types text at the caret the way the edit control reports it: the new
// control text with the characters inserted, and the caret after them.
platform::WideString TypeAt(SecureCells& cells, platform::WideString shown, size_t caret,
                            platform::WideView text) {
    shown.insert(caret, text);
    return cells.OnUpdate(shown, caret + text.size());
}

}  // namespace

TEST(SecureCells, EditsAtTheCaretKeepEveryCellMaskedForItsPosition) {
    SecureCells cells;
    platform::WideString shown = TypeAt(cells, WIDE(""), 0, WIDE("abc"));
    EXPECT_EQ(shown, WIDE("***"));
    EXPECT_EQ(Plain(cells), WIDE("abc"));

    shown = TypeAt(cells, shown, 0, WIDE("Z"));
    EXPECT_EQ(Plain(cells), WIDE("Zabc")) << "typed at the start";
    shown = TypeAt(cells, shown, 2, WIDE("12"));
    EXPECT_EQ(Plain(cells), WIDE("Za12bc")) << "pasted in the middle";
    EXPECT_EQ(shown, WIDE("******"));
    for (size_t i = 0; i < cells.size(); ++i)
        EXPECT_EQ(cells.MaskedCell(i) ^ cells.PadEntry(i), Plain(cells)[i]) << i;

    // Backspace after the second character: the caret ends at 1.
    shown.erase(1, 1);
    shown = cells.OnUpdate(shown, 1);
    EXPECT_EQ(Plain(cells), WIDE("Z12bc"));
    // Delete before the second character: the caret stays at 1.
    shown.erase(1, 1);
    shown = cells.OnUpdate(shown, 1);
    EXPECT_EQ(Plain(cells), WIDE("Z2bc"));
    EXPECT_EQ(shown, WIDE("****"));

    EXPECT_EQ(cells.OnUpdate(WIDE(""), 0), WIDE("")) << "emptying the control empties the cells";
    EXPECT_EQ(cells.size(), 0u);
    EXPECT_EQ(cells.cchLast, 0u);
}

TEST(SecureCells, LongPinsReuseThePadAndClearingWipesAll) {
    SecureCells cells;
    platform::WideString pin;
    for (int i = 0; i < 40; ++i) pin.push_back(static_cast<platform::WideChar>('A' + i % 26));
    cells.InsertChars(0, pin.data(), pin.size());
    ASSERT_EQ(cells.size(), 40u);
    EXPECT_EQ(Plain(cells), pin);
    for (size_t i = 32; i < 40; ++i) {
        EXPECT_EQ(cells.PadEntry(i), cells.PadEntry(i - 32));
        EXPECT_EQ(cells.MaskedCell(i) ^ cells.PadEntry(i - 32), pin[i]);
    }
    cells.InsertChars(41, pin.data(), 1);
    cells.DeleteChars(39, 2);
    EXPECT_EQ(cells.size(), 40u) << "edits beyond the end change nothing";

    cells.ClearText();
    EXPECT_EQ(cells.size(), 0u);
    EXPECT_EQ(Plain(cells), WIDE(""));

    SecureCells other;
    bool differs = false;
    for (size_t i = 0; i < SecureCells::kPadEntries; ++i)
        differs |= other.PadEntry(i) != cells.PadEntry(i);
    EXPECT_TRUE(differs) << "every control draws its own pad";
}
