#include "shared/net/contentcoding.h"

#include <QList>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>
#include <vector>
#include <zlib.h>

namespace http {

namespace {

/// More codings indicate an attack.
constexpr qsizetype maxCodings = 5;
constexpr std::size_t pieceSize = 16 * 1024;
constexpr qsizetype largePieceSize = 1024 * 1024;

constexpr uchar gzipMagic[] = {0x1f, 0x8b};
/// The length of a stream's signature: gzip's magic number or zlib's header.
constexpr qsizetype signatureSize = 2;

/// Receives a body piece by piece. take() returns false when it wants no more.
class Receiver
{
public:
    virtual ~Receiver() = default;
    virtual bool take(QByteArrayView bytes) = 0;
};

/// Ends the chain; only counts the bytes.
class Counter : public Receiver
{
public:
    qsizetype size = 0;

    bool take(QByteArrayView bytes) override
    {
        size += bytes.size();
        return true;
    }
};

/// Ends the chain; keeps the bytes.
class Collector : public Receiver
{
public:
    QByteArray body;

    bool take(QByteArrayView bytes) override
    {
        body.append(bytes);
        return true;
    }
};

/// Decodes one coding and passes on the result, so that with several codings only the last result
/// is kept in memory.
class Inflater : public Receiver
{
public:
    enum class Coding
    {
        Gzip,
        Deflate,
    };

    Inflater(Coding coding, Receiver &next, qsizetype maxSize)
        : next(next)
        , maxSize(maxSize)
        , coding(coding)
    {
    }
    Inflater(const Inflater &) = delete;
    ~Inflater() override
    {
        if (isOpen)
            inflateEnd(&stream);
    }

    bool take(QByteArrayView bytes) override;
    /// The result of this coding after the last byte, or after take() has returned false.
    Unpacking outcome() const;

private:
    enum class State
    {
        /// Waits for the stream's signature.
        Start,
        Inflating,
        /// After the last stream.
        Ended,
        Broken,
        TooLarge,
        /// The next receiver wants no more; its outcome has the reason.
        Refused,
    };

    bool begin();
    QByteArrayView inflatePiece(QByteArrayView bytes);

    Receiver &next;
    const qsizetype maxSize;
    const Coding coding;
    State state = State::Start;
    z_stream stream = {};
    bool isOpen = false;
    /// At least one member of a multi-member gzip body is complete.
    bool hasCompleteMember = false;
    /// Raw deflate without the zlib header: neither a signature nor a checksum.
    bool isRaw = false;
    QByteArray signature;
    qsizetype total = 0;
};

bool Inflater::take(QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        switch (state) {
        case State::Start: {
            const qsizetype count = std::min(signatureSize - signature.size(), bytes.size());
            signature.append(bytes.first(count));
            bytes = bytes.sliced(count);
            if (signature.size() == signatureSize && begin())
                inflatePiece(signature);
            break;
        }
        case State::Inflating:
            bytes = inflatePiece(bytes);
            break;
        case State::Ended:
            // Servers append padding. But a raw stream is accepted only if nothing follows it.
            if (isRaw)
                state = State::Broken;
            bytes = {};
            break;
        case State::Broken:
        case State::TooLarge:
        case State::Refused:
            return false;
        }
    }
    return state == State::Start || state == State::Inflating || state == State::Ended;
}

/// Initializes zlib for the stream with this signature.
bool Inflater::begin()
{
    const auto first = static_cast<uchar>(signature.at(0));
    const auto second = static_cast<uchar>(signature.at(1));
    if (coding == Coding::Gzip && (first != gzipMagic[0] || second != gzipMagic[1])) {
        state = hasCompleteMember ? State::Ended : State::Broken;
        return false;
    }
    int window = MAX_WBITS;
    if (coding == Coding::Gzip) {
        constexpr int withGzipWrapping = 16;
        window += withGzipWrapping;
    } else {
        // A zlib header: method deflate, a window of at most 32 KiB, no dictionary, a valid check
        // value. No raw stream begins this way, and hardly any text.
        constexpr int dictionary = 0x20;
        isRaw = (first & 0x0f) != Z_DEFLATED || (first >> 4) > MAX_WBITS - 8
                || (second & dictionary) != 0 || (first * 256 + second) % 31 != 0;
        if (isRaw)
            window = -window;
    }
    const int result = isOpen ? inflateReset(&stream) : inflateInit2(&stream, window);
    isOpen = isOpen || result == Z_OK;
    state = result == Z_OK ? State::Inflating : State::Broken;
    return result == Z_OK;
}

/// Returns the bytes after the end of the stream.
QByteArrayView Inflater::inflatePiece(QByteArrayView bytes)
{
    std::array<char, pieceSize> piece;
    // zlib does not modify its input.
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    int result = Z_OK;
    do {
        stream.next_out = reinterpret_cast<Bytef *>(piece.data());
        stream.avail_out = static_cast<uInt>(piece.size());
        result = inflate(&stream, Z_NO_FLUSH);
        const auto count = static_cast<qsizetype>(piece.size() - stream.avail_out);
        total += count;
        if (total > maxSize) {
            state = State::TooLarge;
            return {};
        }
        if (count > 0 && !next.take(QByteArrayView(piece.data(), count))) {
            state = State::Refused;
            return {};
        }
    } while (result == Z_OK && (stream.avail_in > 0 || stream.avail_out == 0));

    const QByteArrayView rest = bytes.last(static_cast<qsizetype>(stream.avail_in));
    if (result == Z_STREAM_END) {
        hasCompleteMember = true;
        state = coding == Coding::Gzip ? State::Start : State::Ended;
        signature.clear();
        return rest;
    }
    // Z_BUF_ERROR: more input is needed.
    if (result != Z_OK && result != Z_BUF_ERROR)
        state = State::Broken;
    return {};
}

Unpacking Inflater::outcome() const
{
    switch (state) {
    case State::Start: {
        const bool isGzipBegun = coding == Coding::Gzip && !signature.isEmpty()
                                 && static_cast<uchar>(signature.at(0)) == gzipMagic[0];
        if (signature.isEmpty() || hasCompleteMember)
            return Unpacking::Done;
        return isGzipBegun ? Unpacking::CutOff : Unpacking::Unknown;
    }
    case State::Inflating:
        // Plain text often looks like the beginning of a raw stream.
        return isRaw ? Unpacking::Unknown : Unpacking::CutOff;
    case State::Ended:
    case State::Refused:
        return Unpacking::Done;
    case State::TooLarge:
        return Unpacking::TooLarge;
    case State::Broken:
        break;
    }
    return Unpacking::Unknown;
}

/// The codings in the order of their application; nothing if one is unknown.
std::optional<QList<Inflater::Coding>> codingsOf(const QByteArray &value)
{
    QList<Inflater::Coding> codings;
    const QList<QByteArray> names = value.toLower().split(',');
    for (const QByteArray &part : names) {
        const QByteArray name = part.trimmed();
        if (name.isEmpty() || name == "identity")
            continue;
        if (name == "gzip" || name == "x-gzip")
            codings.append(Inflater::Coding::Gzip);
        else if (name == "deflate")
            codings.append(Inflater::Coding::Deflate);
        else
            return {};
    }
    if (codings.size() > maxCodings)
        return {};
    return codings;
}

/// Decodes the codings, last applied first.
class Chain
{
public:
    Chain(const QList<Inflater::Coding> &codings, Receiver &end, qsizetype maxSize)
        : first(&end)
    {
        for (const Inflater::Coding coding : codings) {
            links.push_back(std::make_unique<Inflater>(coding, *first, maxSize));
            first = links.back().get();
        }
    }

    void take(QByteArrayView bytes) { first->take(bytes); }

    Unpacking outcome() const
    {
        const auto fault = std::find_if(links.crbegin(), links.crend(), [](const auto &link) {
            return link->outcome() != Unpacking::Done;
        });
        return fault == links.crend() ? Unpacking::Done : (*fault)->outcome();
    }

private:
    std::vector<std::unique_ptr<Inflater>> links;
    Receiver *first;
};

/// Splits the bytes into pieces; never holds a second full copy.
std::vector<QByteArray> splitIntoPieces(QByteArray bytes)
{
    std::vector<QByteArray> pieces;
    while (!bytes.isEmpty()) {
        const qsizetype size = std::min(bytes.size(), largePieceSize);
        pieces.push_back(QByteArray(bytes.last(size)));
        bytes.chop(size);
        bytes.squeeze();
    }
    std::reverse(pieces.begin(), pieces.end());
    return pieces;
}

} // namespace

Unpacking unpack(QByteArray &body, const QByteArray &codings, qsizetype maxSize)
{
    const auto known = codingsOf(codings);
    if (!known)
        return Unpacking::Unknown;
    if (known->isEmpty() || body.isEmpty())
        return Unpacking::Done;

    // A body that cannot be decoded must stay unchanged, so the first pass only checks.
    Counter counter;
    Chain trial(*known, counter, maxSize);
    trial.take(body);
    if (trial.outcome() != Unpacking::Done)
        return trial.outcome();

    Collector collector;
    collector.body.reserve(counter.size);
    Chain chain(*known, collector, maxSize);
    if (body.size() <= largePieceSize) {
        chain.take(body);
    } else {
        for (QByteArray &piece : splitIntoPieces(std::exchange(body, {}))) {
            chain.take(piece);
            piece.clear();
        }
    }
    body = std::move(collector.body);
    return Unpacking::Done;
}

} // namespace http
