#include "TempDir.h"

#include <viewer/CXViewer>

#include <gtest/gtest.h>

#include <algorithm>

namespace
{
class WalkingViewer : public CXViewer
{
public:
    WalkingViewer() : CXViewer(0) {}
    using CXViewer::dfsFolder;
};
} // namespace

TEST(DfsFolder, CollectsIveFilesAndDescendsOnlyIntoIveDirectories)
{
    cxtest::TempDir dir;
    dir.write("a.ive", "x");
    dir.write("b.osgb", "x");
    dir.write("plain/c.ive", "x");
    dir.write("tiles.ive/d.ive", "x");
    dir.write("tiles.ive/deeper.ive/e.ive", "x");
    dir.write("tiles.ive/f.txt", "x");

    osg::ref_ptr<WalkingViewer> v = new WalkingViewer;
    std::vector<std::string> files;
    v->dfsFolder(dir.path().string(), files);
    std::sort(files.begin(), files.end());
    const std::string base = dir.path().string();
    EXPECT_EQ(files, (std::vector<std::string>{base + "/a.ive", base + "/tiles.ive/d.ive",
                                               base + "/tiles.ive/deeper.ive/e.ive"}));
}

TEST(DfsFolder, MissingFolderAddsNothing)
{
    osg::ref_ptr<WalkingViewer> v = new WalkingViewer;
    std::vector<std::string> files{"kept"};
    v->dfsFolder("/nonexistent/cxviewer", files);
    EXPECT_EQ(files, std::vector<std::string>{"kept"});
}
