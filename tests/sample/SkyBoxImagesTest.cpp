// The sample's sky box faces: the cube map directions, stars and a glow that
// are really there, faces that meet without a seam, the same faces from the
// same seed, and the files read back as they were made.
#include "SkyBoxImages.h"

#include "Error.h"
#include "TempDir.h"

#include <gtest/gtest.h>
#include <osgDB/ReadFile>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

using cxsample::cubeFaceDirection;
using cxsample::cubeFaceOf;

namespace
{

constexpr int kSize = 128;

osg::Vec3 texel(const osg::Image& image, int column, int row)
{
    const unsigned char* p = image.data(column, row);
    return osg::Vec3(p[0], p[1], p[2]);
}

double difference(const osg::Vec3& a, const osg::Vec3& b)
{
    return (std::abs(a.x() - b.x()) + std::abs(a.y() - b.y()) + std::abs(a.z() - b.z())) / 3.0;
}

const std::array<osg::ref_ptr<osg::Image>, 6>& faces()
{
    static const std::array<osg::ref_ptr<osg::Image>, 6> made = cxsample::skyBoxFaces(kSize, 20240611);
    return made;
}

// The texel of the cube map that a direction falls in.
osg::Vec3 lookUp(const osg::Vec3d& direction)
{
    int face = 0;
    double s = 0.0, t = 0.0;
    cubeFaceOf(direction, face, s, t);
    const int column = std::clamp(static_cast<int>(s * kSize), 0, kSize - 1);
    const int row = std::clamp(static_cast<int>(t * kSize), 0, kSize - 1);
    return texel(*faces()[face], column, row);
}

} // namespace

TEST(SkyBoxImages, FaceDirectionsFollowTheCubeMapConventions)
{
    // The centre of each face looks along its axis.
    const osg::Vec3d axes[6] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
    for (int face = 0; face < 6; ++face)
        EXPECT_EQ(cubeFaceDirection(face, 0.5, 0.5), axes[face]) << face;
    // OpenGL's orientation: on +X, s runs towards -Z and t towards -Y; on +Z,
    // s towards +X and t towards -Y; on +Y, t towards +Z.
    EXPECT_EQ(cubeFaceDirection(0, 1.0, 0.5), osg::Vec3d(1, 0, -1));
    EXPECT_EQ(cubeFaceDirection(0, 0.5, 1.0), osg::Vec3d(1, -1, 0));
    EXPECT_EQ(cubeFaceDirection(4, 1.0, 0.5), osg::Vec3d(1, 0, 1));
    EXPECT_EQ(cubeFaceDirection(4, 0.5, 1.0), osg::Vec3d(0, -1, 1));
    EXPECT_EQ(cubeFaceDirection(2, 0.5, 1.0), osg::Vec3d(0, 1, 1));

    // And cubeFaceOf undoes it.
    for (int face = 0; face < 6; ++face)
        for (double s : {0.03, 0.4, 0.77})
            for (double t : {0.1, 0.5, 0.92})
            {
                int f = -1;
                double s2 = 0, t2 = 0;
                cubeFaceOf(cubeFaceDirection(face, s, t) * 3.7, f, s2, t2);
                EXPECT_EQ(f, face);
                EXPECT_NEAR(s2, s, 1e-12);
                EXPECT_NEAR(t2, t, 1e-12);
            }
}

TEST(SkyBoxImages, FacesHoldStarsAndAGlowAlongTheHorizon)
{
    int stars = 0;
    for (const auto& image : faces())
    {
        ASSERT_TRUE(image.valid());
        EXPECT_EQ(image->s(), kSize);
        EXPECT_EQ(image->t(), kSize);
        EXPECT_EQ(image->getPixelFormat(), static_cast<GLenum>(GL_RGB));
        for (int row = 0; row < kSize; ++row)
            for (int column = 0; column < kSize; ++column)
            {
                const osg::Vec3 c = texel(*image, column, row);
                // A star: a bright point, brighter than the texels around it.
                if (c.x() + c.y() + c.z() > 3 * 70 && column > 0 && row > 0 && column < kSize - 1 && row < kSize - 1)
                {
                    const osg::Vec3 around = texel(*image, column - 1, row) + texel(*image, column + 1, row) +
                                             texel(*image, column, row - 1) + texel(*image, column, row + 1);
                    stars += (c.x() + c.y() + c.z()) * 4 > (around.x() + around.y() + around.z()) * 1.3;
                }
            }
    }
    EXPECT_GT(stars, 40);

    // The night sky is dark and bluish up high.
    const osg::Vec3 zenith = lookUp(osg::Vec3d(0.1, 0.2, 1.0));
    EXPECT_LT(zenith.x() + zenith.y() + zenith.z(), 3 * 30.0);
    // On the horizon towards the west (-X) the glow is bright and warm, to
    // the east cooler; 30 degrees up it has faded.
    const osg::Vec3 west = cxsample::skyColour(osg::Vec3d(-1, 0, 0.01)) * 255.0f;
    const osg::Vec3 east = cxsample::skyColour(osg::Vec3d(1, 0, 0.01)) * 255.0f;
    const osg::Vec3 westHigh = cxsample::skyColour(osg::Vec3d(-1, 0, 0.58)) * 255.0f;
    EXPECT_GT(west.x(), 150.0f);
    EXPECT_GT(west.x(), west.z() * 2.0f);
    EXPECT_GT(east.z(), east.x());
    EXPECT_GT(west.x() + west.y() + west.z(), 3.0f * (westHigh.x() + westHigh.y() + westHigh.z()));
    // What the faces hold is that colour, where no star is.
    const osg::Vec3 westTexel = lookUp(osg::Vec3d(-1, 0.013, 0.01));
    EXPECT_LT(difference(westTexel, west), 24.0);
}

TEST(SkyBoxImages, FacesMeetWithoutASeam)
{
    // Along every edge of every face, the step from a border texel to its
    // neighbour across the edge (on the next face) is no larger than the
    // step to its neighbour inside the face.
    double across = 0.0, inside = 0.0, worstAcross = 0.0, worstInside = 0.0;
    int n = 0;
    for (int face = 0; face < 6; ++face)
        for (int side = 0; side < 4; ++side)
            for (int i = 0; i < kSize; ++i)
            {
                int column = 0, row = 0, dc = 0, dr = 0;
                switch (side)
                {
                case 0: column = 0, row = i, dc = -1; break;
                case 1: column = kSize - 1, row = i, dc = 1; break;
                case 2: column = i, row = 0, dr = -1; break;
                default: column = i, row = kSize - 1, dr = 1; break;
                }
                const osg::Vec3 here = texel(*faces()[face], column, row);
                const osg::Vec3 inward = texel(*faces()[face], column - dc, row - dr);
                // One texel beyond the edge, on the face's plane, then on the
                // face that direction belongs to.
                const osg::Vec3d beyond =
                    cubeFaceDirection(face, (column + dc + 0.5) / kSize, (row + dr + 0.5) / kSize);
                const osg::Vec3 next = lookUp(beyond);
                across += difference(here, next);
                inside += difference(here, inward);
                worstAcross = std::max(worstAcross, difference(here, next));
                worstInside = std::max(worstInside, difference(here, inward));
                ++n;
            }
    across /= n;
    inside /= n;
    std::printf("mean step across the edges %.2f, inside the faces %.2f; worst %.0f and %.0f\n", across, inside,
                worstAcross, worstInside);
    EXPECT_LE(across, inside * 1.5 + 0.5) << "across the edges " << across << ", inside " << inside;
    // A star on an edge steps no more than a star inside a face.
    EXPECT_LE(worstAcross, worstInside * 1.25) << "worst across " << worstAcross << ", inside " << worstInside;
}

TEST(SkyBoxImages, TheSameSeedGivesTheSameSky)
{
    const auto again = cxsample::skyBoxFaces(kSize, 20240611);
    const auto other = cxsample::skyBoxFaces(kSize, 7);
    int differentFaces = 0;
    for (int face = 0; face < 6; ++face)
    {
        EXPECT_EQ(std::memcmp(again[face]->data(), faces()[face]->data(), again[face]->getTotalSizeInBytes()), 0);
        differentFaces += std::memcmp(other[face]->data(), faces()[face]->data(), other[face]->getTotalSizeInBytes()) != 0;
    }
    EXPECT_EQ(differentFaces, 6);
}

TEST(SkyBoxImages, WrittenFacesReadBackAsMade)
{
    cxtest::TempDir dir;
    const cxsample::SkyBoxSummary summary =
        cxsample::writeSkyBoxImages(dir.path().string(), 20240611, nullptr, kSize);
    EXPECT_EQ(summary.faces, 6);
    EXPECT_EQ(summary.folder, (dir.path() / "skybox").string());
    EXPECT_GT(summary.bytes, 6u * 500u);
    for (int face = 0; face < 6; ++face)
    {
        const std::filesystem::path path = dir.path() / "skybox" / (std::string(cxsample::kSkyBoxFaceNames[face]) + ".png");
        ASSERT_TRUE(std::filesystem::is_regular_file(path)) << path;
        osg::ref_ptr<osg::Image> read = osgDB::readImageFile(path.string());
        ASSERT_TRUE(read.valid()) << path;
        ASSERT_EQ(read->s(), kSize);
        ASSERT_EQ(read->t(), kSize);
        ASSERT_EQ(read->getPixelFormat(), static_cast<GLenum>(GL_RGB));
        // Row for row as made: the cube map sees the faces the same way.
        EXPECT_EQ(std::memcmp(read->data(), faces()[face]->data(), read->getTotalSizeInBytes()), 0) << path;
    }
    // Nothing else is left in the folder.
    int entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir.path() / "skybox"))
        ++entries;
    EXPECT_EQ(entries, 6);
}

TEST(SkyBoxImages, AnUnwritableFolderIsAClearError)
{
    cxtest::TempDir dir;
    const std::filesystem::path blocker = dir.path() / "file";
    std::ofstream(blocker) << "x";
    EXPECT_THROW(cxsample::writeSkyBoxImages(blocker.string(), 1, nullptr, 16), cxsample::Error);
}
