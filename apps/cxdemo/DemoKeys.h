// The demo host's keys: the viewer's rendering modes, the region labels and
// the point clouds' draw mode. One handler on the main view (and on the vice
// view while there is one); the rendering modes' work runs in the next update
// traversal, outside the event traversal whose views and cameras it changes.
// Add further keys beside these (the stock state set and stats handlers own
// l, b, w, t and s).
#ifndef CXDEMO_DEMOKEYS_H
#define CXDEMO_DEMOKEYS_H

#include <viewer/CXViewer>

#include <osg/observer_ptr>
#include <osgGA/GUIEventHandler>

#include <string>
#include <vector>

namespace cxdemo
{

class DemoKeys : public osgGA::GUIEventHandler
{
public:
    /** `basePath`: the sample's folder (its skybox/ and models/). */
    DemoKeys(CXViewer* viewer, const std::string& basePath);

    /** Puts the handler on the viewer's main view and its key work into the
      * composite viewer's update operations. */
    static DemoKeys* install(CXViewer* viewer, const std::string& basePath);

    /** The keys, one line each, for --help. */
    static const char* help();

    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    /** 'p': the depth partition on or off. The viewer's first toggle has no
      * partition to switch off and only sets its flag; the demo then toggles
      * once more, so that one key press always switches it. */
    void toggleDepthPartition();
    bool depthPartitionOn() const;

    /** 'v': the split view. The vice view shows a planned tower on the
      * south side of the business district that the main view does not; the
      * view stays where it was. Again: the vice view goes. */
    void toggleSplitView();
    bool splitViewOn() const;

    /** 'k': the sky box with the sample's cube map, in place of the globe's
      * space and stars (its atmosphere stays); again: the globe's sky.
      * False, with a message, when the faces are missing. */
    bool toggleSkyBox();
    bool skyBoxOn() const;

    /** 'n': shows (node mask all ones) or hides (0) the region labels, the
      * viewer's "provinceName" group. */
    void setLabelsShown(bool shown);
    bool labelsShown() const;

    /** 'm': the point clouds' next draw mode, 0 (stored colour), 1 (class),
      * 2 (height), 3 (intensity), then 0 again: the "PotreeDrawmode" uniform
      * of the LiDAR group. Returns the new mode. */
    int nextPointCloudDrawMode();
    int pointCloudDrawMode() const;

    /** Runs the keys pressed since the last call. */
    void runPending();

private:
    osg::observer_ptr<CXViewer> _viewer;
    std::string _basePath;
    std::vector<int> _pending;
    osg::ref_ptr<osg::Node> _skyBox;
    osg::ref_ptr<osg::Node> _plannedTower;
};

/** Presses and releases each key of `keys` on the viewer's window, as a person
  * at the keyboard would. */
void pressKeys(CXViewer& viewer, const std::string& keys);

} // namespace cxdemo

#endif
