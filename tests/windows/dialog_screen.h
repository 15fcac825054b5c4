// What the Win32 dialog tests share: the Wine desktop their windows live
// in, screen captures and PNG files of them, and paths as Windows sees them.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace dialog_screen {

// A Unix path as Wine's Z: drive shows it.
inline std::wstring WindowsPath(const std::string& unixPath) {
    return L"Z:" + std::filesystem::path(unixPath).wstring();
}

// Every window of these tests lives in one Wine virtual desktop, so that no
// window manager is waited for when a dialog closes.
inline HDESK TestDesktop() {
    static HDESK desktop = [] {
        // One desktop for every test of a run: Wine starts its desktop
        // process once, and that start is slow.
        const std::wstring name = L"ci";
        HKEY key = nullptr;
        const wchar_t size[] = L"1024x768";
        if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Wine\\Explorer\\Desktops", 0, nullptr,
                            REG_OPTION_VOLATILE, KEY_SET_VALUE, nullptr, &key,
                            nullptr) == ERROR_SUCCESS) {
            RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(size),
                           sizeof size);
            RegCloseKey(key);
        }
        return CreateDesktopW(name.c_str(), nullptr, nullptr, 0, GENERIC_ALL, nullptr);
    }();
    return desktop;
}

struct Image {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;

    bool IsStatusRed(int x, int y) const {
        const uint8_t* p = &rgb[(static_cast<size_t>(y) * width + x) * 3];
        return p[0] >= 200 && p[1] <= 60 && p[2] <= 60;
    }
    int RedPixels(const RECT& area) const {
        int count = 0;
        for (int y = std::max(0L, area.top); y < std::min<long>(height, area.bottom); ++y)
            for (int x = std::max(0L, area.left); x < std::min<long>(width, area.right); ++x)
                count += IsStatusRed(x, y);
        return count;
    }
};

// What is on screen where the window is.
inline Image Capture(HWND window) {
    RECT r;
    GetWindowRect(window, &r);
    Image image;
    image.width = r.right - r.left;
    image.height = r.bottom - r.top;
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.bmiHeader.biWidth = image.width;
    info.bmiHeader.biHeight = -image.height;  // top-down rows
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    void* bits = nullptr;
    HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, image.width, image.height, screen, r.left, r.top, SRCCOPY);
    const auto* bgrx = static_cast<const uint8_t*>(bits);
    for (size_t i = 0; i < static_cast<size_t>(image.width) * image.height; ++i)
        image.rgb.insert(image.rgb.end(), {bgrx[i * 4 + 2], bgrx[i * 4 + 1], bgrx[i * 4]});
    SelectObject(memory, old);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    return image;
}

// A PNG of stored (uncompressed) deflate blocks: no zlib needed.
inline void SavePng(const Image& image, const std::wstring& path) {
    auto crc = [](const std::string& bytes) {
        uint32_t c = 0xFFFFFFFF;
        for (unsigned char b : bytes) {
            c ^= b;
            for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320 & (0 - (c & 1)));
        }
        return ~c;
    };
    auto be32 = [](uint32_t v) {
        return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    };
    auto chunk = [&](const std::string& type, const std::string& data) {
        return be32(static_cast<uint32_t>(data.size())) + type + data + be32(crc(type + data));
    };
    std::string raw;
    for (int y = 0; y < image.height; ++y) {
        raw.push_back(0);
        raw.append(reinterpret_cast<const char*>(&image.rgb[size_t(y) * image.width * 3]),
                   size_t(image.width) * 3);
    }
    std::string z = "\x78\x01";
    uint32_t a = 1, b = 0;
    for (unsigned char c : raw) a = (a + c) % 65521, b = (b + a) % 65521;
    for (size_t at = 0; at < raw.size() || at == 0; at += 65535) {
        const size_t n = std::min<size_t>(65535, raw.size() - at);
        z.push_back(at + n >= raw.size() ? 1 : 0);
        z += {char(n), char(n >> 8), char(~n), char(~n >> 8)};
        z.append(raw, at, n);
    }
    z += be32((b << 16) | a);
    std::string header = be32(image.width) + be32(image.height) + std::string("\x08\x02\0\0\0", 5);
    std::ofstream(std::filesystem::path(path), std::ios::binary)
        << "\x89PNG\r\n\x1a\n"
        << chunk("IHDR", header) << chunk("IDAT", z) << chunk("IEND", "");
}

}  // namespace dialog_screen
