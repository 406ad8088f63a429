#include <objects/IdText>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace OBJManage
{

namespace
{

// Every piece between commas, empty ones too.
std::vector<std::string> piecesOf(const std::string& text)
{
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (true)
    {
        const std::size_t comma = text.find(',', start);
        if (comma == std::string::npos)
        {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
}

} // namespace

osg::Vec3d parseCenterText(const std::string& text)
{
    const std::size_t first = text.find(',');
    const std::size_t last = text.rfind(',');
    const char* begin = text.c_str();
    const double x = std::atof(begin);
    const double y = first == std::string::npos ? x : std::atof(begin + first + 1);
    const double z = last == std::string::npos ? x : std::atof(begin + last + 1);
    return osg::Vec3d(x, y, z);
}

std::vector<std::string> splitIdList(const std::string& text)
{
    std::vector<std::string> ids;
    for (std::string& piece : piecesOf(text))
    {
        if (piece.empty() || std::find(ids.begin(), ids.end(), piece) != ids.end())
            continue;
        ids.push_back(std::move(piece));
    }
    return ids;
}

std::string joinIdList(const std::vector<std::string>& pieces)
{
    std::string text;
    for (const std::string& piece : pieces)
    {
        if (!text.empty())
            text += ',';
        text += piece;
    }
    return text;
}

std::vector<int> childIdsOf(const std::string& text)
{
    std::vector<int> ids;
    for (const std::string& piece : piecesOf(text))
    {
        const long long value = std::strtoll(piece.c_str(), nullptr, 10);
        ids.push_back(static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value))));
    }
    return ids;
}

} // namespace OBJManage
