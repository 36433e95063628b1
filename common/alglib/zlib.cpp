#include "common/alglib/zlib.h"

#include <zlib.h>

#include <algorithm>
#include <limits>

#include "common/exc.h"

namespace alglib::compress {

namespace {

const Bytef* AsBytes(std::span<const char> data) { return reinterpret_cast<const Bytef*>(data.data()); }

/// Inflates `data` chunk by chunk, so that memory grows with what is really there.
class CInflater {
public:
    explicit CInflater(std::span<const char> data) : rest_(data) {
        if (inflateInit(&stream_) != Z_OK) {
            throw exc::CRuntimeExc("Cannot start zlib decompression");
        }
    }
    CInflater(const CInflater&) = delete;
    CInflater& operator=(const CInflater&) = delete;
    ~CInflater() { inflateEnd(&stream_); }

    void Run(cnt::array_t<char>& out, std::size_t limit) {
        int result = Z_OK;
        while (result != Z_STREAM_END) {
            Feed();
            const std::size_t before = out.size();
            const std::size_t room = std::max<std::size_t>(std::min<std::size_t>(before, std::size_t{1} << 26U), 16384);
            out.resize(before + room);
            stream_.next_out = reinterpret_cast<Bytef*>(out.data() + before);
            stream_.avail_out = static_cast<uInt>(room);
            result = inflate(&stream_, Z_NO_FLUSH);
            out.resize(before + room - stream_.avail_out);
            if (result != Z_OK && result != Z_STREAM_END) {
                throw exc::CRuntimeExc("Damaged zlib data: %1",
                                       stream_.msg != nullptr ? stream_.msg : "cut off or corrupt");
            }
            if (out.size() > limit) {
                throw exc::CRuntimeExc("Damaged zlib data: grows past %1 bytes", limit);
            }
        }
        if (stream_.avail_in != 0 || !rest_.empty()) {
            throw exc::CRuntimeExc("Damaged zlib data: bytes behind its end");
        }
    }

private:
    void Feed() {
        if (stream_.avail_in == 0 && !rest_.empty()) {
            const std::size_t size = std::min<std::size_t>(rest_.size(), std::numeric_limits<uInt>::max());
            stream_.next_in = const_cast<Bytef*>(AsBytes(rest_));  // NOLINT: zlib does not write to it
            stream_.avail_in = static_cast<uInt>(size);
            rest_ = rest_.subspan(size);
        }
    }

    std::span<const char> rest_;
    z_stream stream_{};
};

}  // namespace

std::shared_ptr<cnt::array_t<char>> CZlibUtil::CompressBest(std::span<const char> data) {
    auto size = compressBound(data.size());
    auto out = std::make_shared<cnt::array_t<char>>(size);
    const int result =
        compress2(reinterpret_cast<Bytef*>(out->data()), &size, AsBytes(data), data.size(), Z_BEST_COMPRESSION);
    if (result != Z_OK) {
        throw exc::CRuntimeExc("zlib compression failed (%1)", result);
    }
    out->resize(size);
    return out;
}

std::shared_ptr<cnt::array_t<char>> CZlibUtil::Decompress(std::span<const char> data, std::size_t limit) {
    auto out = std::make_shared<cnt::array_t<char>>();
    CInflater(data).Run(*out, limit);
    return out;
}

}  // namespace alglib::compress
