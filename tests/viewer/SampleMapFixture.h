// Rendering tests on the real sample data (Blue Marble imagery and SRTM
// elevation prepared by scripts/prepare-data.sh): a viewer after InitOSG on
// them, and the helpers those tests share: settling the view, projecting and
// picking geographic points, flying to a view.
#ifndef CXVIEWER_TESTS_SAMPLEMAPFIXTURE_H
#define CXVIEWER_TESTS_SAMPLEMAPFIXTURE_H

#include "ViewerFixture.h"

#include <globe/EarthManipulator>

#include <chrono>
#include <string>

namespace cxtest
{

/** Where the prepared sample data lie: $CXVIEWER_SAMPLE_DIR, else the
  * folder the build was configured with. */
std::string sampleDir();

/** Success when the earth file and the two MBTiles files are under `base`. */
::testing::AssertionResult sampleDataPresent(const std::string& base);

/** Seconds since `since`. */
double secondsSince(std::chrono::steady_clock::time_point since);

/** A viewer on the real sample data, in a small window (llvmpipe is slow). */
class SampleMapFixture : public ViewerFixture
{
protected:
    SampleMapFixture();

    void SetUp() override;

    globe::EarthManipulator* globeManipulator() const;

    /** Draws frames until the running flight has ended and the pager has
      * merged everything the view asked for; false after `limit` seconds. */
    bool settle(double limit = 120.0);

    /** Window position (origin bottom-left) of a world point. */
    osg::Vec3d toWindow(const osg::Vec3d& world) const;
    /** World position of a longitude, latitude and height. */
    osg::Vec3d worldOf(double lon, double lat, double height = 0.0) const;
    /** Longitude and latitude in degrees and height of a world point. */
    void toGeographic(const osg::Vec3d& world, double& lon, double& lat, double& height) const;

    /** The colour drawn at a longitude and latitude. */
    osg::Vec4ub colourAt(const osg::Image& frame, double lon, double lat) const;

    /** The first scene hit under a window position (origin bottom-left). */
    bool pick(double x, double y, osg::Vec3d& world) const;
    /** Longitude, latitude and height of the ground under the window centre. */
    void pickCentre(double& lon, double& lat, double& height);
    /** The highest ground of the map's terrain along the vertical through
      * `world`, picked by the test itself. */
    bool groundUnder(const osg::Vec3d& world, osg::Vec3d& ground) const;
    /** The eye's height over the ground under it; false where no ground is
      * loaded. */
    bool eyeClearance(double& metres) const;
    /** The eye in world coordinates, from the camera's view matrix. */
    osg::Vec3d eye() const;

    /** Flies (at once) to a view and waits for the tiles. */
    void lookAt(double lon, double lat, double height, double heading, double pitch, double range);
    /** Flies (at once) to a top-down view and waits for the tiles. */
    void lookDownAt(double lon, double lat, double height, double range);
};

} // namespace cxtest

#endif
