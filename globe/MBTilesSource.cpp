#include <globe/MBTilesSource>

#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/ObjectWrapper>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>
#include <osgDB/XmlParser>

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <sstream>
#include <streambuf>

namespace globe
{

struct MBTilesSource::Info
{
    std::string filename;
    Profile profile = SPHERICAL_MERCATOR;
    bool hasLevels = false;
    int minZoom = 0;
    int maxZoom = -1;
    int tileSize = 256;
    std::string format;
    ElevationEncoding encoding = ElevationEncoding::MAPBOX;
    bool hasBounds = false;
    double bounds[4] = {0.0, 0.0, 0.0, 0.0};
    std::map<std::string, std::string> metadata;
    unsigned int generation = 0;
};

struct MBTilesSource::Connection
{
    sqlite3* db = nullptr;
    sqlite3_stmt* tile = nullptr;
    unsigned int generation = 0;

    ~Connection()
    {
        if (tile)
            sqlite3_finalize(tile);
        if (db)
            sqlite3_close(db);
    }
};

namespace
{

constexpr int kMaxZoom = 30;
constexpr std::size_t kMaxIdleConnections = 4;
const char* const kTileQuery = "SELECT tile_data FROM tiles WHERE zoom_level = ?1 AND tile_column = ?2 AND tile_row = ?3";

// The plugin extension for a format name.
std::string extensionFor(const std::string& format)
{
    const std::string f = osgDB::convertToLowerCase(osgDB::trimEnclosingSpaces(format));
    if (f == "jpeg" || f == "jpg" || f == "image/jpeg")
        return "jpg";
    if (f == "png" || f == "image/png")
        return "png";
    if (f == "tif" || f == "tiff" || f == "image/tiff")
        return "tif";
    if (f == "webp" || f == "image/webp")
        return "webp";
    return f;
}

// The image type by its first bytes; "" when unknown.
std::string sniffExtension(const std::string& bytes)
{
    const auto* b = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t n = bytes.size();
    if (n >= 8 && std::memcmp(b, "\x89PNG\r\n\x1a\n", 8) == 0)
        return "png";
    if (n >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF)
        return "jpg";
    if (n >= 4 && (std::memcmp(b, "II*\0", 4) == 0 || std::memcmp(b, "MM\0*", 4) == 0))
        return "tif";
    if (n >= 12 && std::memcmp(b, "RIFF", 4) == 0 && std::memcmp(b + 8, "WEBP", 4) == 0)
        return "webp";
    if (n >= 6 && std::memcmp(b, "GIF8", 4) == 0)
        return "gif";
    return std::string();
}

// CRC-32 (the PNG / zlib polynomial), eight bytes per step.
class Crc32
{
public:
    Crc32()
    {
        for (std::uint32_t i = 0; i < 256; ++i)
        {
            std::uint32_t c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1u) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            _table[0][i] = c;
        }
        for (int t = 1; t < 8; ++t)
            for (std::uint32_t i = 0; i < 256; ++i)
                _table[t][i] = (_table[t - 1][i] >> 8) ^ _table[0][_table[t - 1][i] & 0xFFu];
    }

    std::uint32_t operator()(const unsigned char* p, std::size_t n) const
    {
        std::uint32_t c = 0xFFFFFFFFu;
        while (n >= 8)
        {
            const std::uint32_t lo = c ^ (std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24);
            c = _table[7][lo & 0xFFu] ^ _table[6][(lo >> 8) & 0xFFu] ^ _table[5][(lo >> 16) & 0xFFu] ^ _table[4][lo >> 24]
                ^ _table[3][p[4]] ^ _table[2][p[5]] ^ _table[1][p[6]] ^ _table[0][p[7]];
            p += 8;
            n -= 8;
        }
        while (n--)
            c = _table[0][(c ^ *p++) & 0xFFu] ^ (c >> 8);
        return c ^ 0xFFFFFFFFu;
    }

private:
    std::uint32_t _table[8][256];
};

std::uint32_t bigEndian32(const unsigned char* p)
{
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | std::uint32_t(p[3]);
}

// True when a PNG stream is whole: every chunk complete with a matching CRC,
// up to IEND. OpenSceneGraph's PNG reader leaks its row buffers when libpng
// gives up half-way, so broken tiles are refused before they reach it.
bool pngIsIntact(const std::string& bytes)
{
    static const Crc32 crc;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t size = bytes.size();
    std::size_t at = 8;
    while (at + 12 <= size)
    {
        const std::uint32_t length = bigEndian32(p + at);
        if (length > size - at - 12)
            return false;
        const unsigned char* type = p + at + 4;
        if (crc(type, 4 + std::size_t(length)) != bigEndian32(type + 4 + length))
            return false;
        if (std::memcmp(type, "IEND", 4) == 0)
            return true;
        at += 12 + std::size_t(length);
    }
    return false;
}

bool looksCompressed(const std::string& bytes)
{
    if (bytes.size() < 2)
        return false;
    const auto b0 = static_cast<unsigned char>(bytes[0]);
    const auto b1 = static_cast<unsigned char>(bytes[1]);
    if (b0 == 0x1F && b1 == 0x8B)
        return true; // gzip
    return (b0 & 0x0F) == 8 && (b0 >> 4) <= 7 && ((b0 << 8) | b1) % 31 == 0; // zlib
}

bool inflate(const std::string& in, std::string& out)
{
    osgDB::BaseCompressor* zlib = osgDB::Registry::instance()->getObjectWrapperManager()->findCompressor("zlib");
    if (!zlib)
        return false;
    std::istringstream stream(in);
    std::string result;
    if (!zlib->decompress(stream, result) || result.empty())
        return false;
    out.swap(result);
    return true;
}

// A read-only stream over bytes the caller keeps alive; seekable, since some
// image plugins seek.
class MemoryBuffer : public std::streambuf
{
public:
    MemoryBuffer(const char* data, std::size_t size)
    {
        char* p = const_cast<char*>(data);
        setg(p, p, p + size);
    }

protected:
    pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) override
    {
        if (!(which & std::ios_base::in))
            return pos_type(off_type(-1));
        char* target = nullptr;
        if (dir == std::ios_base::beg)
            target = eback() + off;
        else if (dir == std::ios_base::cur)
            target = gptr() + off;
        else
            target = egptr() + off;
        if (target < eback() || target > egptr())
            return pos_type(off_type(-1));
        setg(eback(), target, egptr());
        return pos_type(target - eback());
    }
    pos_type seekpos(pos_type pos, std::ios_base::openmode which) override
    {
        return seekoff(off_type(pos), std::ios_base::beg, which);
    }
};

bool parseInt(const std::string& text, int& out)
{
    const std::string t = osgDB::trimEnclosingSpaces(text);
    if (t.empty())
        return false;
    char* end = nullptr;
    const long v = std::strtol(t.c_str(), &end, 10);
    if (*end != '\0')
        return false;
    out = static_cast<int>(std::clamp(v, -1L, static_cast<long>(kMaxZoom)));
    return true;
}

bool parseBounds(const std::string& text, double bounds[4])
{
    std::string t = text;
    std::replace(t.begin(), t.end(), ',', ' ');
    std::istringstream in(t);
    double v[4];
    for (double& d : v)
        if (!(in >> d) || !std::isfinite(d))
            return false;
    if (v[0] >= v[2] || v[1] >= v[3])
        return false;
    std::copy(v, v + 4, bounds);
    return true;
}

std::string columnText(sqlite3_stmt* stmt, int column)
{
    const unsigned char* text = sqlite3_column_text(stmt, column);
    return text ? reinterpret_cast<const char*>(text) : std::string();
}

struct Statement
{
    sqlite3_stmt* stmt = nullptr;
    Statement(sqlite3* db, const char* sql)
    {
        if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) != SQLITE_OK)
            stmt = nullptr;
    }
    ~Statement()
    {
        if (stmt)
            sqlite3_finalize(stmt);
    }
};

struct Database
{
    sqlite3* db = nullptr;
    ~Database()
    {
        if (db)
            sqlite3_close(db);
    }
};

bool openDatabase(const std::string& filename, sqlite3*& db)
{
    db = nullptr;
    if (sqlite3_open_v2(filename.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK)
    {
        if (db)
            sqlite3_close(db);
        db = nullptr;
        return false;
    }
    sqlite3_busy_timeout(db, 2000);
    return true;
}

} // namespace

MBTilesSource::MBTilesSource(const MBTilesOptions& options) : _options(options) {}

MBTilesSource::~MBTilesSource()
{
    for (Connection* c : _idle)
        delete c;
}

bool MBTilesSource::openInfo(std::shared_ptr<Info>& result, std::string& message) const
{
    auto info = std::make_shared<Info>();
    info->filename = _options.getFilename();
    const std::string driver = osgDB::convertToLowerCase(_options.getDriver());
    if (!driver.empty() && driver != "mbtiles")
    {
        message = "unsupported driver \"" + _options.getDriver() + "\"";
        return false;
    }
    if (info->filename.empty())
    {
        message = "no file name";
        return false;
    }
    if (!osgDB::fileExists(info->filename))
    {
        message = "file not found: " + info->filename;
        return false;
    }

    Database database;
    if (!openDatabase(info->filename, database.db))
    {
        message = "cannot open " + info->filename;
        return false;
    }

    {
        Statement metadata(database.db, "SELECT name, value FROM metadata");
        while (metadata.stmt && sqlite3_step(metadata.stmt) == SQLITE_ROW)
            info->metadata[columnText(metadata.stmt, 0)] = columnText(metadata.stmt, 1);
    }

    {
        Statement tiles(database.db, kTileQuery);
        if (!tiles.stmt)
        {
            message = "no tiles table in " + info->filename + ": " + sqlite3_errmsg(database.db);
            return false;
        }
    }

    auto meta = [&](const char* name) {
        auto found = info->metadata.find(name);
        return found == info->metadata.end() ? std::string() : found->second;
    };

    int minZoom = -1, maxZoom = -1;
    bool levelsFromMetadata = false;
    if (!_options.getComputeLevels())
        levelsFromMetadata = parseInt(meta("minzoom"), minZoom) && parseInt(meta("maxzoom"), maxZoom) && minZoom >= 0
                             && minZoom <= maxZoom;
    if (!levelsFromMetadata)
    {
        Statement levels(database.db, "SELECT MIN(zoom_level), MAX(zoom_level) FROM tiles");
        if (levels.stmt && sqlite3_step(levels.stmt) == SQLITE_ROW && sqlite3_column_type(levels.stmt, 0) != SQLITE_NULL)
        {
            minZoom = static_cast<int>(std::clamp<sqlite3_int64>(sqlite3_column_int64(levels.stmt, 0), 0, kMaxZoom));
            maxZoom = static_cast<int>(std::clamp<sqlite3_int64>(sqlite3_column_int64(levels.stmt, 1), 0, kMaxZoom));
        }
    }
    info->hasLevels = minZoom >= 0 && maxZoom >= minZoom;
    info->minZoom = info->hasLevels ? minZoom : 0;
    info->maxZoom = info->hasLevels ? maxZoom : -1;

    const std::string profile = osgDB::convertToLowerCase(osgDB::trimEnclosingSpaces(meta("profile")));
    info->profile = (profile == "global-geodetic" || profile == "geodetic") ? GEODETIC : SPHERICAL_MERCATOR;

    info->format = extensionFor(_options.format() ? *_options.format() : meta("format"));

    const std::string encodingName =
        _options.elevationEncoding() ? *_options.elevationEncoding() : meta("elevation_encoding");
    const std::string encoding = osgDB::convertToLowerCase(osgDB::trimEnclosingSpaces(encodingName));
    info->encoding = encoding == "terrarium" ? ElevationEncoding::TERRARIUM : ElevationEncoding::MAPBOX;

    info->hasBounds = parseBounds(meta("bounds"), info->bounds);

    // The tile size, from the first tile of the top level.
    if (info->hasLevels)
    {
        Statement first(database.db, "SELECT tile_data FROM tiles WHERE zoom_level = ?1 LIMIT 1");
        if (first.stmt)
        {
            sqlite3_bind_int(first.stmt, 1, info->minZoom);
            if (sqlite3_step(first.stmt) == SQLITE_ROW)
            {
                const void* blob = sqlite3_column_blob(first.stmt, 0);
                const int size = sqlite3_column_bytes(first.stmt, 0);
                std::string bytes(blob ? static_cast<const char*>(blob) : "", blob ? size : 0);
                if (looksCompressed(bytes) || _options.compress().value_or(false))
                    inflate(bytes, bytes);
                osg::ref_ptr<osg::Image> image = decodeImage(bytes, info->format);
                if (image.valid() && image->s() > 0)
                    info->tileSize = image->s();
            }
        }
    }

    result = info;
    return true;
}

bool MBTilesSource::open()
{
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_info)
            return true;
    }
    std::shared_ptr<Info> info;
    std::string message;
    const bool ok = openInfo(info, message);

    std::lock_guard<std::mutex> lock(_mutex);
    if (_info)
        return true;
    if (!ok)
    {
        _status = message;
        return false;
    }
    info->generation = ++_generation;
    _info = info;
    _status.clear();
    return true;
}

void MBTilesSource::close()
{
    std::vector<Connection*> idle;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _info.reset();
        ++_generation;
        idle.swap(_idle);
    }
    for (Connection* c : idle)
        delete c;
}

bool MBTilesSource::isOpen() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _info != nullptr;
}

std::string MBTilesSource::getStatusMessage() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _status;
}

std::shared_ptr<const MBTilesSource::Info> MBTilesSource::info() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _info;
}

MBTilesSource::Layout MBTilesSource::getLayout() const
{
    Layout layout;
    if (auto i = info())
    {
        layout.profile = i->profile;
        layout.hasLevels = i->hasLevels;
        layout.minLevel = i->minZoom;
        layout.maxLevel = i->maxZoom;
        layout.tileSize = i->tileSize;
    }
    return layout;
}

MBTilesSource::Profile MBTilesSource::getProfile() const
{
    auto i = info();
    return i ? i->profile : SPHERICAL_MERCATOR;
}

bool MBTilesSource::hasLevels() const
{
    auto i = info();
    return i && i->hasLevels;
}

int MBTilesSource::getMinLevel() const
{
    auto i = info();
    return i ? i->minZoom : 0;
}

int MBTilesSource::getMaxLevel() const
{
    auto i = info();
    return i ? i->maxZoom : -1;
}

int MBTilesSource::getTileSize() const
{
    auto i = info();
    return i ? i->tileSize : 256;
}

std::string MBTilesSource::getFormat() const
{
    auto i = info();
    return i ? i->format : extensionFor(_options.format().value_or(std::string()));
}

MBTilesSource::ElevationEncoding MBTilesSource::getElevationEncoding() const
{
    auto i = info();
    return i ? i->encoding : ElevationEncoding::MAPBOX;
}

bool MBTilesSource::getBounds(double& west, double& south, double& east, double& north) const
{
    auto i = info();
    if (!i || !i->hasBounds)
        return false;
    west = i->bounds[0];
    south = i->bounds[1];
    east = i->bounds[2];
    north = i->bounds[3];
    return true;
}

std::string MBTilesSource::getMetadata(const std::string& name) const
{
    auto i = info();
    if (!i)
        return std::string();
    auto found = i->metadata.find(name);
    return found == i->metadata.end() ? std::string() : found->second;
}

unsigned int MBTilesSource::getNumTilesWide(int z) const
{
    if (z < 0 || z > kMaxZoom)
        return 0;
    return getProfile() == GEODETIC ? (2u << z) : (1u << z);
}

unsigned int MBTilesSource::getNumTilesHigh(int z) const
{
    if (z < 0 || z > kMaxZoom)
        return 0;
    return 1u << z;
}

MBTilesSource::Connection* MBTilesSource::acquire(std::shared_ptr<const Info>& current) const
{
    std::vector<Connection*> stale;
    Connection* found = nullptr;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        current = _info;
        if (!current)
            return nullptr;
        while (!_idle.empty() && !found)
        {
            Connection* c = _idle.back();
            _idle.pop_back();
            if (c->generation == current->generation)
                found = c;
            else
                stale.push_back(c);
        }
    }
    for (Connection* c : stale)
        delete c;
    if (found)
        return found;

    auto connection = std::make_unique<Connection>();
    connection->generation = current->generation;
    if (!openDatabase(current->filename, connection->db))
        return nullptr;
    if (sqlite3_prepare_v2(connection->db, kTileQuery, -1, &connection->tile, nullptr) != SQLITE_OK)
        return nullptr;
    return connection.release();
}

void MBTilesSource::release(Connection* connection) const
{
    if (!connection)
        return;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_info && connection->generation == _info->generation && _idle.size() < kMaxIdleConnections)
        {
            _idle.push_back(connection);
            return;
        }
    }
    delete connection;
}

bool MBTilesSource::readTileData(int z, unsigned int x, unsigned int y, std::string& out) const
{
    std::shared_ptr<const Info> current;
    {
        current = info();
        if (!current || !current->hasLevels || z < current->minZoom || z > current->maxZoom)
            return false;
        const unsigned int wide = current->profile == GEODETIC ? (2u << z) : (1u << z);
        const unsigned int high = 1u << z;
        if (x >= wide || y >= high)
            return false;
    }

    Connection* connection = acquire(current);
    if (!connection)
        return false;
    const unsigned int tmsRow = (1u << z) - 1u - y;
    sqlite3_stmt* stmt = connection->tile;
    sqlite3_reset(stmt);
    sqlite3_bind_int(stmt, 1, z);
    sqlite3_bind_int64(stmt, 2, x);
    sqlite3_bind_int64(stmt, 3, tmsRow);
    bool found = false;
    if (sqlite3_step(stmt) == SQLITE_ROW)
    {
        const void* blob = sqlite3_column_blob(stmt, 0);
        const int size = sqlite3_column_bytes(stmt, 0);
        if (blob && size > 0)
        {
            out.assign(static_cast<const char*>(blob), static_cast<std::size_t>(size));
            found = true;
        }
    }
    sqlite3_reset(stmt);
    release(connection);

    if (found && (looksCompressed(out) || _options.compress().value_or(false)) && sniffExtension(out).empty())
        inflate(out, out);
    return found;
}

osg::ref_ptr<osg::Image> MBTilesSource::readImage(int z, unsigned int x, unsigned int y) const
{
    std::string bytes;
    if (!readTileData(z, x, y, bytes))
        return nullptr;
    return decodeImage(bytes, getFormat());
}

osg::ref_ptr<osg::HeightField> MBTilesSource::readHeightField(int z, unsigned int x, unsigned int y) const
{
    osg::ref_ptr<osg::Image> image = readImage(z, x, y);
    if (!image)
        return nullptr;
    return decodeHeights(*image, getElevationEncoding());
}

osg::ref_ptr<osg::Image> MBTilesSource::decodeImage(const std::string& bytes, const std::string& format)
{
    if (bytes.empty())
        return nullptr;
    std::string extension = sniffExtension(bytes);
    if (extension.empty())
        extension = extensionFor(format);
    if (extension.empty() || (extension == "png" && !pngIsIntact(bytes)))
        return nullptr;
    try
    {
        osgDB::ReaderWriter* rw = osgDB::Registry::instance()->getReaderWriterForExtension(extension);
        if (!rw)
            return nullptr;
        MemoryBuffer buffer(bytes.data(), bytes.size());
        std::istream in(&buffer);
        osgDB::ReaderWriter::ReadResult result = rw->readImage(in);
        osg::ref_ptr<osg::Image> image = result.getImage();
        if (!image || image->s() <= 0 || image->t() <= 0 || image->r() <= 0 || !image->data())
            return nullptr;
        return image;
    }
    catch (...)
    {
        return nullptr;
    }
}

osg::ref_ptr<osg::HeightField> MBTilesSource::decodeHeights(const osg::Image& image, ElevationEncoding encoding)
{
    const int width = image.s();
    const int height = image.t();
    if (width <= 0 || height <= 0 || !image.data())
        return nullptr;
    const GLenum format = image.getPixelFormat();
    const GLenum type = image.getDataType();
    const unsigned int channels = osg::Image::computeNumComponents(format);
    const bool bgr = format == GL_BGR || format == GL_BGRA;
    const bool hasAlpha = format == GL_RGBA || format == GL_BGRA || format == GL_LUMINANCE_ALPHA;
    const bool topDown = image.getOrigin() == osg::Image::TOP_LEFT;

    if (channels == 0 || channels > 4)
        return nullptr;
    if (channels >= 3 && type != GL_UNSIGNED_BYTE && type != GL_UNSIGNED_SHORT)
        return nullptr;
    if (channels <= 2 && type != GL_UNSIGNED_BYTE && type != GL_UNSIGNED_SHORT && type != GL_SHORT && type != GL_FLOAT
        && type != GL_INT && type != GL_UNSIGNED_INT)
        return nullptr;

    osg::ref_ptr<osg::HeightField> field = new osg::HeightField;
    field->allocate(static_cast<unsigned int>(width), static_cast<unsigned int>(height));
    field->setOrigin(osg::Vec3(0.0f, 0.0f, 0.0f));
    field->setXInterval(1.0f);
    field->setYInterval(1.0f);
    osg::HeightField::HeightList& heights = field->getHeightList();

    const std::size_t pixelBytes = image.getPixelSizeInBits() / 8;
    const bool bytes = type == GL_UNSIGNED_BYTE;
    const unsigned int r = bgr ? 2 : 0;
    const unsigned int b = bgr ? 0 : 2;
    for (int row = 0; row < height; ++row)
    {
        const int imageRow = topDown ? height - 1 - row : row;
        const unsigned char* p = image.data(0, static_cast<unsigned int>(imageRow));
        float* out = &heights[static_cast<std::size_t>(row) * width];
        if (channels >= 3)
        {
            // Eight bits per channel (16-bit tiles keep their high bytes).
            auto channel = [&](const unsigned char* px, unsigned int k) -> unsigned int {
                if (bytes)
                    return px[k];
                std::uint16_t v;
                std::memcpy(&v, px + 2 * k, 2);
                return v >> 8;
            };
            for (int col = 0; col < width; ++col, p += pixelBytes)
            {
                if (hasAlpha && channel(p, 3) == 0)
                {
                    out[col] = NO_DATA_VALUE;
                    continue;
                }
                const unsigned int R = channel(p, r), G = channel(p, 1), B = channel(p, b);
                out[col] = encoding == ElevationEncoding::TERRARIUM
                               ? static_cast<float>(R * 256.0 + G + B / 256.0 - 32768.0)
                               : static_cast<float>(-10000.0 + static_cast<double>(R * 65536u + G * 256u + B) * 0.1);
            }
            continue;
        }
        for (int col = 0; col < width; ++col, p += pixelBytes)
        {
            bool valid = true;
            double v = 0.0;
            switch (type)
            {
            case GL_UNSIGNED_BYTE:
                v = p[0];
                valid = !(channels == 2 && p[1] == 0);
                break;
            case GL_UNSIGNED_SHORT:
            case GL_SHORT:
            {
                // 16-bit heights are signed; -32768 marks a void.
                std::int16_t s16;
                std::memcpy(&s16, p, 2);
                v = s16;
                valid = s16 != -32768;
                if (channels == 2)
                {
                    std::uint16_t a;
                    std::memcpy(&a, p + 2, 2);
                    valid = valid && a != 0;
                }
                break;
            }
            case GL_FLOAT:
            {
                float f;
                std::memcpy(&f, p, 4);
                v = f;
                valid = std::isfinite(f) && f > -1.0e30f;
                break;
            }
            default: // GL_INT, GL_UNSIGNED_INT
            {
                std::int32_t i32;
                std::memcpy(&i32, p, 4);
                v = i32;
                valid = i32 != INT32_MIN;
                break;
            }
            }
            out[col] = valid ? static_cast<float>(v) : NO_DATA_VALUE;
        }
    }
    return field;
}

} // namespace globe
