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

/// More of them are no packing but an attack.
constexpr qsizetype maxCodings = 5;
constexpr std::size_t pieceSize = 16 * 1024;
constexpr qsizetype largePieceSize = 1024 * 1024;

constexpr uchar gzipMagic[] = {0x1f, 0x8b};
/// What a stream is told by: the two bytes of gzip's magic number, or of zlib's header.
constexpr qsizetype signSize = 2;

/// Takes the bytes of a body piece by piece. A false result: no more are wanted.
class Receiver
{
public:
    virtual ~Receiver() = default;
    virtual bool take(QByteArrayView bytes) = 0;
};

/// Ends the chain, and keeps nothing.
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

/// Ends the chain.
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

/// Undoes one coding and passes on what comes out, so that of several codings only the last result
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
    /// What came of this coding when no more bytes follow, or take() has refused them.
    Unpacking outcome() const;

private:
    enum class State
    {
        /// Waits for the bytes that tell the stream.
        Start,
        Inflating,
        /// After the last stream.
        Ended,
        Broken,
        TooLarge,
        /// The next receiver wants no more and knows why.
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
    /// Of a gzip body that is made of several, one is whole.
    bool hasWholeMember = false;
    /// Deflate without zlib's wrapping, which has neither a sign to be told by nor a checksum.
    bool isBare = false;
    QByteArray sign;
    qsizetype total = 0;
};

bool Inflater::take(QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        switch (state) {
        case State::Start: {
            const qsizetype count = std::min(signSize - sign.size(), bytes.size());
            sign.append(bytes.first(count));
            bytes = bytes.sliced(count);
            if (sign.size() == signSize && begin())
                inflatePiece(sign);
            break;
        }
        case State::Inflating:
            bytes = inflatePiece(bytes);
            break;
        case State::Ended:
            // Servers pad. But a bare stream is taken for one only when it is all that there is.
            if (isBare)
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

/// Prepares for the stream that begins with the sign.
bool Inflater::begin()
{
    const auto first = static_cast<uchar>(sign.at(0));
    const auto second = static_cast<uchar>(sign.at(1));
    if (coding == Coding::Gzip && (first != gzipMagic[0] || second != gzipMagic[1])) {
        state = hasWholeMember ? State::Ended : State::Broken;
        return false;
    }
    int window = MAX_WBITS;
    if (coding == Coding::Gzip) {
        constexpr int withGzipWrapping = 16;
        window += withGzipWrapping;
    } else {
        // The method deflate, a window of at most 32 KiB, no dictionary, and a check digit. No bare
        // stream begins so, and hardly a text.
        constexpr int dictionary = 0x20;
        isBare = (first & 0x0f) != Z_DEFLATED || (first >> 4) > MAX_WBITS - 8
                 || (second & dictionary) != 0 || (first * 256 + second) % 31 != 0;
        if (isBare)
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
    // zlib does not write there.
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
        hasWholeMember = true;
        state = coding == Coding::Gzip ? State::Start : State::Ended;
        sign.clear();
        return rest;
    }
    // Z_BUF_ERROR: it wants more than there is.
    if (result != Z_OK && result != Z_BUF_ERROR)
        state = State::Broken;
    return {};
}

Unpacking Inflater::outcome() const
{
    switch (state) {
    case State::Start: {
        const bool isGzipBegun = coding == Coding::Gzip && !sign.isEmpty()
                                 && static_cast<uchar>(sign.at(0)) == gzipMagic[0];
        if (sign.isEmpty() || hasWholeMember)
            return Unpacking::Done;
        return isGzipBegun ? Unpacking::CutOff : Unpacking::Unknown;
    }
    case State::Inflating:
        // A text that is not packed at all often looks like the beginning of a bare stream.
        return isBare ? Unpacking::Unknown : Unpacking::CutOff;
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

/// The codings in the order in which they were applied; nothing when one is not known.
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

/// Undoes the codings, the one that was applied last first.
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

/// The bytes in pieces, with never both forms of them in memory.
std::vector<QByteArray> takenApart(QByteArray bytes)
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

    // The body is needed until the end when it cannot be unpacked, so that is found out first.
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
        for (QByteArray &piece : takenApart(std::exchange(body, {}))) {
            chain.take(piece);
            piece.clear();
        }
    }
    body = std::move(collector.body);
    return Unpacking::Done;
}

} // namespace http
