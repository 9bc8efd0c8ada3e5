#pragma once
// Little-endian field access for the container, independent of the host.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zqx {

inline uint16_t LoadLe16(const uint8_t* p)
{
    return uint16_t(p[0] | p[1] << 8);
}
inline uint32_t LoadLe32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint64_t LoadLe64(const uint8_t* p)
{
    return uint64_t(LoadLe32(p)) | uint64_t(LoadLe32(p + 4)) << 32;
}

inline void StoreLe16(uint8_t* p, uint16_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void StoreLe32(uint8_t* p, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = uint8_t(v >> (8 * i));
}
inline void StoreLe64(uint8_t* p, uint64_t v)
{
    StoreLe32(p, uint32_t(v));
    StoreLe32(p + 4, uint32_t(v >> 32));
}

// Appends fields to a growing chunk payload.
class ByteSink {
public:
    void U16(uint16_t v)
    {
        Grow(2, [&](uint8_t* p) { StoreLe16(p, v); });
    }
    void U32(uint32_t v)
    {
        Grow(4, [&](uint8_t* p) { StoreLe32(p, v); });
    }
    void U64(uint64_t v)
    {
        Grow(8, [&](uint8_t* p) { StoreLe64(p, v); });
    }
    void Bytes(const void* data, size_t size)
    {
        const auto* b = static_cast<const uint8_t*>(data);
        bytes.insert(bytes.end(), b, b + size);
    }
    // A string as its byte length and its bytes.
    void Text(const std::string& s)
    {
        U32(static_cast<uint32_t>(s.size()));
        Bytes(s.data(), s.size());
    }
    std::vector<uint8_t> bytes;

private:
    template <typename F> void Grow(size_t n, F store)
    {
        bytes.resize(bytes.size() + n);
        store(bytes.data() + bytes.size() - n);
    }
};

// Reads fields from a payload; every read checks the remaining length, and the
// first overrun latches failure so a parser can check once at the end.
class ByteSource {
public:
    ByteSource(const uint8_t* data, size_t size) : p(data), left(size) {}
    bool U32(uint32_t& v)
    {
        return Take(4, [&](const uint8_t* q) { v = LoadLe32(q); });
    }
    bool Text(std::string& s, size_t maxBytes)
    {
        uint32_t n = 0;
        if (!U32(n) || n > left || n > maxBytes)
            return Fail();
        s.assign(reinterpret_cast<const char*>(p), n);
        p += n;
        left -= n;
        return true;
    }
    bool Blob(std::vector<uint8_t>& out, size_t n)
    {
        if (n > left)
            return Fail();
        out.assign(p, p + n);
        p += n;
        left -= n;
        return true;
    }
    size_t Remaining() const { return left; }
    bool Ok() const { return ok; }

private:
    template <typename F> bool Take(size_t n, F load)
    {
        if (!ok || n > left)
            return Fail();
        load(p);
        p += n;
        left -= n;
        return true;
    }
    bool Fail()
    {
        ok = false;
        return false;
    }
    const uint8_t* p;
    size_t left;
    bool ok = true;
};

} // namespace zqx
