#include "pin/secure_cells.h"

#include <cstdio>

#include "platform/debug_output.h"
#include "platform/protected_memory.h"

namespace {

[[noreturn]] void Fail(const char* text) {
    throw std::runtime_error(text);
}

}  // namespace

void SecureCells::WipeCell::operator()(uint16_t* cell) const {
    platform::SecureZero(cell, sizeof *cell);
    delete cell;
}

SecureCells::SecureCells() {
    platform::RandomSource random;
    uint32_t error = 0;
    if (!random.Acquire(&error)) {
        char code[12];
        std::snprintf(code, sizeof code, "0x%08X", error);
        platform::DebugOutput(code);
        Fail(
            "No se pudo adquirir el contexto criptogr\xC3\xA1"
            "fico");
    }
    pPad = platform::SecureBuffer<uint16_t>(kPadEntries);
    for (size_t i = 0; i < kPadEntries; ++i)
        if (!random.Generate(&pPad[i], sizeof(uint16_t), &error))
            Fail("No se pudo generar un n\xC3\xBAmero aleatorio");
    if (!random.Release(&error))
        Fail(
            "No se pudo liberar el contexto criptogr\xC3\xA1"
            "fico");
}

SecureCells::~SecureCells() {
    ClearText();
}

void SecureCells::ApplyPad() {
    for (size_t i = 0; i < cells_.size(); ++i) *cells_[i] ^= pPad[i % kPadEntries];
}

void SecureCells::InsertChars(size_t position, const platform::WideChar* chars, size_t count) {
    if (!chars || count == 0 || position > cells_.size()) return;
    ApplyPad();
    size_t at = position;
    for (size_t j = 0; j < count; ++j) {
        Cell cell(new (std::nothrow) uint16_t(static_cast<uint16_t>(chars[j])));
        // A cell that cannot be allocated loses its character, nothing else.
        if (!cell) continue;
        cells_.insert(cells_.begin() + static_cast<std::ptrdiff_t>(at++), std::move(cell));
    }
    ApplyPad();
}

void SecureCells::DeleteChars(size_t position, size_t count) {
    if (position + count > cells_.size()) return;
    ApplyPad();
    auto first = cells_.begin() + static_cast<std::ptrdiff_t>(position);
    cells_.erase(first, first + static_cast<std::ptrdiff_t>(count));
    ApplyPad();
}

void SecureCells::ClearText() {
    cells_.clear();
    cchLast = 0;
}

platform::SecureBuffer<platform::WideChar> SecureCells::GetPlainText() const {
    platform::SecureBuffer<platform::WideChar> text;
    try {
        text = platform::SecureBuffer<platform::WideChar>(cells_.size() + 1);
    } catch (const std::bad_alloc&) {
        return text;
    }
    for (size_t i = 0; i < cells_.size(); ++i)
        text[i] = static_cast<platform::WideChar>(*cells_[i] ^ pPad[i % kPadEntries]);
    return text;
}

platform::WideString SecureCells::OnUpdate(platform::WideView newText, size_t caret) {
    size_t n = newText.size();
    if (n == cchLast) return platform::WideString(newText);
    // The control keeps no selection, so a change is an insertion just
    // before the caret or a removal at it.
    if (n > cchLast) {
        size_t added = n - cchLast;
        if (caret >= added) InsertChars(caret - added, newText.data() + (caret - added), added);
    } else {
        DeleteChars(caret, cchLast - n);
    }
    // Counted before the asterisks are written back, so that the update they
    // cause finds nothing to do.
    cchLast = static_cast<uint32_t>(cells_.size());
    return platform::WideString(n, WIDE('*'));
}
