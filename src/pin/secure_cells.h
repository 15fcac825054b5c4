// The store behind the PIN edit control: each typed character lives in a
// heap cell of its own, masked with a random pad entry chosen by its
// position, so that the control's text can be nothing but asterisks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/secure_buffer.h"
#include "platform/wide_string.h"

class SecureCells {
public:
    static constexpr size_t kPadEntries = 32;

    // Draws the pad from the platform's random source; throws
    // std::runtime_error with the user's text when it cannot.
    SecureCells();
    ~SecureCells();
    SecureCells(const SecureCells&) = delete;
    SecureCells& operator=(const SecureCells&) = delete;

    // Stores count characters before position; nothing when position is past
    // the end.
    void InsertChars(size_t position, const platform::WideChar* chars, size_t count);
    // Removes count characters from position; nothing when they are not all
    // there.
    void DeleteChars(size_t position, size_t count);
    // XORs every cell with its pad entry: once unmasks, twice masks again.
    void ApplyPad();
    // Wipes and forgets every character.
    void ClearText();
    // The characters unmasked, in a buffer the caller owns and that wipes
    // itself.
    platform::SecureBuffer<platform::WideChar> GetPlainText() const;

    size_t size() const { return cells_.size(); }
    // The masked value of one cell, for tests of the masking rule.
    uint16_t MaskedCell(size_t i) const { return *cells_[i]; }
    uint16_t PadEntry(size_t i) const { return pPad[i % kPadEntries]; }

    // Applies a change of the control's text, as the control reports it:
    // newText is the whole text now shown, caret the position after the
    // change. Returns the asterisks the control should show instead.
    platform::WideString OnUpdate(platform::WideView newText, size_t caret);

    // The number of characters at the last update.
    uint32_t cchLast = 0;

private:
    struct WipeCell {
        void operator()(uint16_t* cell) const;
    };
    using Cell = std::unique_ptr<uint16_t, WipeCell>;

    platform::SecureBuffer<uint16_t> pPad;
    std::vector<Cell> cells_;
};
