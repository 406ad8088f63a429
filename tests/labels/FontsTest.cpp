// Font lookup for labels: the named file first, an installed CJK font when
// it is absent, one shared font object per file.
#include "TempDir.h"

#include <globe/Fonts>

#include <gtest/gtest.h>
#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <filesystem>

namespace
{

const char* const kWenQuanYi = "/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc";
const char* const kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// A font file of this machine's font folders called `name`, when there is one.
bool installedAnywhere(const std::string& name)
{
    for (const char* folder : {"/usr/share/fonts", "/usr/local/share/fonts"})
    {
        std::error_code error;
        std::filesystem::recursive_directory_iterator it(folder, error);
        for (const std::filesystem::recursive_directory_iterator end; !error && it != end; it.increment(error))
            if (osgDB::convertToLowerCase(it->path().filename().string()) == osgDB::convertToLowerCase(name))
                return true;
    }
    return false;
}

// Puts a folder in front of the data file paths while it lives.
class DataPath
{
public:
    explicit DataPath(const std::string& folder)
    {
        _saved = osgDB::Registry::instance()->getDataFilePathList();
        osgDB::Registry::instance()->getDataFilePathList().push_front(folder);
    }
    ~DataPath() { osgDB::Registry::instance()->setDataFilePathList(_saved); }

private:
    osgDB::FilePathList _saved;
};

} // namespace

TEST(Fonts, TheFallbackIsTheInstalledCJKFont)
{
    ASSERT_TRUE(std::filesystem::is_regular_file(kWenQuanYi)) << "fonts-wqy-zenhei is not installed";
    EXPECT_EQ(globe::getCJKFallbackFont(), kWenQuanYi);
}

TEST(Fonts, AMissingSimheiFallsBackToTheCJKFont)
{
    if (installedAnywhere("simhei.ttf"))
        GTEST_SKIP() << "this machine has a simhei.ttf";
    EXPECT_EQ(globe::resolveFontFile("simhei.ttf"), globe::getCJKFallbackFont());
    // Never what fontconfig hands out for unknown names.
    EXPECT_NE(globe::resolveFontFile("simhei.ttf"), kDejaVu);
    EXPECT_EQ(globe::resolveFontFile("no-such-font-anywhere.ttf"), globe::getCJKFallbackFont());
    EXPECT_EQ(globe::resolveFontFile(""), globe::getCJKFallbackFont());
}

TEST(Fonts, SimheiIsLookedForFirstInTheDataPaths)
{
    cxtest::TempDir dir;
    std::filesystem::copy_file(kDejaVu, dir.path() / "simhei.ttf");
    DataPath path(dir.path().string());
    EXPECT_EQ(std::filesystem::path(globe::resolveFontFile("simhei.ttf")), dir.path() / "simhei.ttf");
}

TEST(Fonts, SimheiIsFoundInTheFontsFolderOfADataPath)
{
    cxtest::TempDir dir;
    std::filesystem::create_directories(dir.path() / "fonts");
    std::filesystem::copy_file(kDejaVu, dir.path() / "fonts" / "simhei.ttf");
    DataPath path(dir.path().string());
    EXPECT_EQ(std::filesystem::path(globe::resolveFontFile("simhei.ttf")), dir.path() / "fonts" / "simhei.ttf");
}

TEST(Fonts, AnExistingFileIsTakenAsItStands)
{
    EXPECT_EQ(globe::resolveFontFile(kDejaVu), kDejaVu);
    EXPECT_EQ(globe::resolveFontFile("/no/such/folder/font.ttf"), globe::getCJKFallbackFont());
}

TEST(Fonts, AFontIsReadOnceAndShared)
{
    osg::ref_ptr<osgText::Font> a = globe::readFont("simhei.ttf");
    osg::ref_ptr<osgText::Font> b = globe::readFont("simhei.ttf");
    ASSERT_TRUE(a.valid());
    EXPECT_EQ(a.get(), b.get());
    // The same file under another name gives the same object.
    osg::ref_ptr<osgText::Font> fallback = globe::readFont(globe::resolveFontFile("simhei.ttf"));
    EXPECT_EQ(a.get(), fallback.get());
    // Options of the caller do not make a second copy either.
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options("some-option");
    osg::ref_ptr<osgText::Font> c = globe::readFont("simhei.ttf", options.get());
    osg::ref_ptr<osgText::Font> d = globe::readFont("simhei.ttf", options.get());
    ASSERT_TRUE(c.valid());
    EXPECT_EQ(c.get(), d.get());
}

TEST(Fonts, TheFallbackFontHasCJKGlyphsAndDejaVuHasNot)
{
    osg::ref_ptr<osgText::Font> cjk = globe::readFont("no-such-font-anywhere.ttf");
    osg::ref_ptr<osgText::Font> latin = globe::readFont(kDejaVu);
    ASSERT_TRUE(cjk.valid());
    ASSERT_TRUE(latin.valid());
    ASSERT_NE(cjk.get(), latin.get());
    const osgText::FontResolution resolution(32, 32);
    // 北 and 京: two different shapes in the CJK font, one missing-glyph box
    // (the same image twice) in DejaVu Sans.
    auto pixels = [&](osgText::Font* font, unsigned int code) {
        osgText::Glyph* glyph = font->getGlyph(resolution, code);
        std::vector<unsigned char> data;
        if (glyph && glyph->data())
            data.assign(glyph->data(), glyph->data() + glyph->getTotalSizeInBytes());
        return data;
    };
    const auto bei = pixels(cjk.get(), 0x5317), jing = pixels(cjk.get(), 0x4EAC);
    ASSERT_FALSE(bei.empty());
    ASSERT_FALSE(jing.empty());
    EXPECT_NE(bei, jing);
    const auto boxBei = pixels(latin.get(), 0x5317), boxJing = pixels(latin.get(), 0x4EAC);
    EXPECT_EQ(boxBei, boxJing);
}
