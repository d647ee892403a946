#include "erofs_decode.h"

#include <algorithm>
#include <memory>

#include <lz4.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

namespace images::erofs {

namespace {

constexpr int kZstdWindowBits = 20;

bool DecodeLz4(std::string_view stream, bool is_partial, char* to, size_t size) {
    const int from = static_cast<int>(stream.size()), wanted = static_cast<int>(size);
    const int count = is_partial
                              ? LZ4_decompress_safe_partial(stream.data(), to, from, wanted, wanted)
                              : LZ4_decompress_safe(stream.data(), to, from, wanted);
    return count == wanted;
}

bool DecodeMicroLzma(std::string_view stream, bool is_partial, uint32_t dictionary, char* to,
                     size_t size) {
    // Decoded data refer to nothing before their start, so a dictionary of their size suffices.
    dictionary = std::min(dictionary, std::max<uint32_t>(size, 4096));
    lzma_stream lzma = LZMA_STREAM_INIT;
    if (lzma_microlzma_decoder(&lzma, stream.size(), size, !is_partial, dictionary) != LZMA_OK) {
        return false;
    }
    lzma.next_in = reinterpret_cast<const uint8_t*>(stream.data());
    lzma.avail_in = stream.size();
    lzma.next_out = reinterpret_cast<uint8_t*>(to);
    lzma.avail_out = size;
    const lzma_ret result = lzma_code(&lzma, LZMA_FINISH);
    const bool is_full = lzma.avail_out == 0;
    lzma_end(&lzma);
    return result == LZMA_STREAM_END && is_full;
}

bool DecodeDeflate(std::string_view stream, bool is_partial, char* to, size_t size) {
    z_stream deflate = {};
    if (inflateInit2(&deflate, -MAX_WBITS) != Z_OK) return false;
    deflate.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(stream.data()));
    deflate.avail_in = static_cast<uInt>(stream.size());
    deflate.next_out = reinterpret_cast<Bytef*>(to);
    deflate.avail_out = static_cast<uInt>(size);
    int result = inflate(&deflate, Z_SYNC_FLUSH);
    bool is_right = deflate.avail_out == 0;
    if (is_right && !is_partial) {
        // When the output is full, the end of the stream may still be in the input.
        Bytef more;
        deflate.next_out = &more;
        deflate.avail_out = 1;
        if (result == Z_OK) result = inflate(&deflate, Z_SYNC_FLUSH);
        is_right = result == Z_STREAM_END && deflate.avail_out == 1 && deflate.avail_in == 0;
    }
    inflateEnd(&deflate);
    return is_right;
}

bool DecodeZstd(std::string_view stream, bool is_partial, char* to, size_t size) {
    const std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> context(ZSTD_createDCtx(),
                                                                       ZSTD_freeDCtx);
    if (context == nullptr ||
        ZSTD_isError(ZSTD_DCtx_setParameter(context.get(), ZSTD_d_windowLogMax, kZstdWindowBits))) {
        return false;
    }
    ZSTD_inBuffer in = {stream.data(), stream.size(), 0};
    ZSTD_outBuffer out = {to, size, 0};
    for (;;) {
        const size_t before = in.pos + out.pos;
        const size_t result = ZSTD_decompressStream(context.get(), &out, &in);
        if (ZSTD_isError(result)) return false;
        if (is_partial && out.pos == size) return true;
        if (result == 0) return out.pos == size && in.pos == in.size;
        if (in.pos + out.pos == before) return false;
    }
}

}  // namespace

bool Decode(Algorithm algorithm, std::string_view stream, bool is_partial, uint32_t lzma_dictionary,
            char* to, size_t size) {
    switch (algorithm) {
        case kLz4:
            return DecodeLz4(stream, is_partial, to, size);
        case kMicroLzma:
            return DecodeMicroLzma(stream, is_partial, lzma_dictionary, to, size);
        case kDeflate:
            return DecodeDeflate(stream, is_partial, to, size);
        case kZstd:
            return DecodeZstd(stream, is_partial, to, size);
        default:
            return false;
    }
}

}  // namespace images::erofs
