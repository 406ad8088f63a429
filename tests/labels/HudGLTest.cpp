// The heads-up display on the real globe (sample data, a real X11 window):
// the position under the mouse, the scale text and bar, the compass, and
// how the HUD follows the window, as the viewer's handler keeps them.
#include "SampleMapFixture.h"

#include <labels/CLableControlEventHandler>

#include <globe/ControlCanvas>
#include <globe/SpatialReference>
#include <globe/TerrainEngine>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/observer_ptr>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>

using cxtest::SampleMapFixture;

namespace
{

double valueAfter(const std::string& text, const std::string& tag)
{
    const std::size_t at = text.find(tag);
    return at == std::string::npos ? std::nan("") : std::strtod(text.c_str() + at + tag.size(), nullptr);
}

// The scale text as the rule says it, written here on its own.
std::string expectedScaleText(int metres)
{
    std::ostringstream text;
    if (metres > 1000)
    {
        text.precision(6);
        text << metres / 1000.0 << " km";
    }
    else
    {
        text << std::max(metres, 1) << " m";
    }
    return text.str();
}

bool isRed(const osg::Vec4ub& c) { return c.r() > 150 && c.g() < 90 && c.b() < 90; }

// Red pixels of the compass's dial (in the window's top left 100 x 100), by
// half: up, down, left, right.
struct RedHalves
{
    int up = 0, down = 0, left = 0, right = 0;
};

RedHalves redHalves(const osg::Image& frame)
{
    RedHalves halves;
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x)
            if ((x - 50) * (x - 50) + (y - 50) * (y - 50) < 45 * 45 && isRed(cxtest::pixelAt(frame, x, y)))
            {
                (y < 50 ? halves.up : halves.down)++;
                (x < 50 ? halves.left : halves.right)++;
            }
    return halves;
}

} // namespace

class Hud : public SampleMapFixture
{
protected:
    void SetUp() override
    {
        SampleMapFixture::SetUp();
        if (HasFatalFailure())
            return;
        viewer->addViewPointLable();
        handler = viewer->labelHandler;
        ASSERT_NE(handler, nullptr);
    }

    /** Puts the mouse over the ground at a longitude and latitude. */
    void mouseOver(double lon, double lat, double height = 0.0)
    {
        const osg::Vec3d w = toWindow(worldOf(lon, lat, height));
        mouseMove(static_cast<float>(w.x()), static_cast<float>(windowHeight - w.y()));
    }

    /** Puts the mouse at a window position, origin bottom left. */
    void mouseAtGL(double x, double y) { mouseMove(static_cast<float>(x), static_cast<float>(windowHeight - y)); }

    std::string positionText() const { return handler->coordinateLabel->text(); }
    std::string scaleText() const { return handler->scaleLabel->text(); }

    /** What the bar spans, measured by the test: two picks one pixel apart
      * at the window's centre, their distance in the UTM zone, times 30. */
    double measuredScale()
    {
        osg::Vec3d a, b;
        const int cx = windowWidth / 2, cy = windowHeight / 2;
        if (!pick(cx, cy, a) || !pick(cx + 1, cy, b))
            return 0.0;
        osg::Vec3d ga, gb;
        toGeographic(a, ga.x(), ga.y(), ga.z());
        toGeographic(b, gb.x(), gb.y(), gb.z());
        const globe::SpatialReference* wgs84 = globe::SpatialReference::create("wgs84");
        const globe::SpatialReference* utm = wgs84->createUTMFromLonLat(ga.x(), ga.y());
        osg::Vec3d qa, qb;
        EXPECT_TRUE(wgs84->transform(ga, utm, qa));
        EXPECT_TRUE(wgs84->transform(gb, utm, qb));
        return (qa - qb).length() * 30.0;
    }

    CLableControlEventHandler* handler = nullptr;
};

TEST_F(Hud, ThePositionUnderTheMouseOverBeijing)
{
    lookDownAt(116.4074, 39.9042, 0.0, 50000.0);
    EXPECT_EQ(positionText(), "");
    mouseOver(116.4074, 39.9042);
    frames(2);
    const std::string text = positionText();
    EXPECT_EQ(text.rfind("B:116.4", 0), 0u) << text;
    EXPECT_NE(text.find("  L:39.9"), std::string::npos) << text;
    EXPECT_NEAR(valueAfter(text, "B:"), 116.4074, 0.005) << text;
    EXPECT_NEAR(valueAfter(text, "  L:"), 39.9042, 0.005) << text;
    const double height = valueAfter(text, "  H:");
    EXPECT_GT(height, -100.0) << text;
    EXPECT_LT(height, 500.0) << text;
    // White characters 15 pixels high at the top, from the middle less 100.
    const globe::LabelControl* label = handler->coordinateLabel;
    EXPECT_EQ(label->foreColor(), osg::Vec4f(1, 1, 1, 1));
    EXPECT_FLOAT_EQ(label->fontSize(), 15.0f);
    ASSERT_TRUE(label->hasPosition());
    EXPECT_FLOAT_EQ(label->x(), windowWidth / 2.0f - 100.0f);
    EXPECT_FLOAT_EQ(label->y(), 0.0f);
    EXPECT_FLOAT_EQ(label->renderPosition().y() + label->renderSize().y(), static_cast<float>(windowHeight));

    // And it follows the mouse.
    mouseOver(116.45, 39.87);
    frames(1);
    EXPECT_NEAR(valueAfter(positionText(), "B:"), 116.45, 0.005) << positionText();
    EXPECT_NEAR(valueAfter(positionText(), "  L:"), 39.87, 0.005) << positionText();

    osg::ref_ptr<osg::Image> frame = grabFrame();
    cxtest::saveScreenshot(*frame, "hud_beijing");
}

TEST_F(Hud, TheScaleTextIsWhatThirtyPixelsSpanAtTheCentre)
{
    lookDownAt(116.4074, 39.9042, 0.0, 50000.0);
    mouseOver(116.42, 39.91);
    frames(1);
    const double measured = measuredScale();
    ASSERT_GT(measured, 100.0);
    EXPECT_EQ(scaleText(), expectedScaleText(static_cast<int>(measured)));
    // From 50 km, 30 pixels of a 360 pixel high window with a 30 degree
    // field of view span about 50 km x 2 tan(15 degrees) / 12.
    EXPECT_NEAR(measured, 50000.0 * 2.0 * std::tan(osg::DegreesToRadians(15.0)) / 12.0, 200.0);
    EXPECT_NE(handler->scaleLabel->getNodeMask(), 0u);
    EXPECT_NE(handler->scaleCamera->getNodeMask(), 0u);
    EXPECT_FLOAT_EQ(handler->scaleLabel->renderPosition().x(), 50.0f);
    EXPECT_FLOAT_EQ(handler->scaleLabel->renderPosition().y(), 20.0f);

    // The bar is drawn in the bottom left corner: the white segment of
    // mapscale.png at 70 pixels across, 8 up.
    osg::ref_ptr<osg::Image> frame = grabFrame();
    const osg::Vec4ub white = cxtest::pixelAt(*frame, 72, windowHeight - 1 - 8);
    const osg::Vec4ub black = cxtest::pixelAt(*frame, 57, windowHeight - 1 - 8);
    EXPECT_GT(white.r() + white.g() + white.b(), 600) << "the bar's white segment";
    EXPECT_LT(black.r() + black.g() + black.b(), 90) << "the bar's black segment";
    cxtest::saveScreenshot(*frame, "hud_scale");
}

TEST_F(Hud, ABarSpanningOneThousandAndOneMetresReadsInKilometres)
{
    // Over the sea, where the ground is flat at height 0, the span grows
    // with the range: find the range at which it is 1001 m.
    const double lon = 123.5, lat = 35.0;
    double range = 22000.0;
    double measured = 0.0;
    for (int attempt = 0; attempt < 6; ++attempt)
    {
        lookDownAt(lon, lat, 0.0, range);
        measured = measuredScale();
        ASSERT_GT(measured, 0.0);
        if (std::floor(measured) == 1001.0)
            break;
        range *= 1001.5 / measured;
    }
    ASSERT_EQ(std::floor(measured), 1001.0) << "range " << range;
    mouseOver(lon + 0.01, lat + 0.01);
    frames(1);
    EXPECT_EQ(scaleText(), "1.001 km");
}

TEST_F(Hud, BothPicksMissingReadOneMetre)
{
    lookDownAt(116.4, 39.9, 0.0, 50000.0);
    // No ground at the window's centre: the terrain does not take part,
    // and a plate of the host's, east of the centre, catches the mouse.
    viewer->mapNode->getTerrainEngine()->setNodeMask(0);
    osg::Matrixd frameAt;
    const globe::SpatialReference* wgs84 = globe::SpatialReference::create("wgs84");
    ASSERT_TRUE(globe::GeoPoint(wgs84, 116.4, 39.9, 0.0).createLocalToWorld(frameAt));
    osg::ref_ptr<osg::MatrixTransform> plate = new osg::MatrixTransform(frameAt);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(4000.0f, -5000.0f, 0.0f),
                                                       osg::Vec3(8000.0f, 0.0f, 0.0f), osg::Vec3(0.0f, 10000.0f, 0.0f)));
    plate->addChild(geode.get());
    viewer->getRoot()->addChild(plate.get());

    const osg::Vec3d onPlate = toWindow(osg::Vec3d(8000.0, 0.0, 0.0) * frameAt);
    ASSERT_GT(onPlate.x(), windowWidth / 2.0 + 20.0);
    mouseAtGL(onPlate.x(), onPlate.y());
    frames(2);
    const std::string text = positionText();
    EXPECT_NEAR(valueAfter(text, "B:"), 116.4 + 8000.0 / (111320.0 * std::cos(osg::DegreesToRadians(39.9))), 0.01)
        << text;
    EXPECT_EQ(scaleText(), "1 m");
    EXPECT_NE(handler->scaleCamera->getNodeMask(), 0u);
}

TEST_F(Hud, TheScaleBarHidesFromTheEarthsRadius)
{
    lookDownAt(109.0, 32.0, 0.0, 6371000.0);
    ASSERT_DOUBLE_EQ(globeManipulator()->getViewpoint().getRange(), 6371000.0);
    mouseAtGL(windowWidth / 2.0 + 10.0, windowHeight / 2.0 + 10.0);
    frames(1);
    ASSERT_NE(positionText(), "") << "the mouse is over the globe";
    EXPECT_EQ(handler->scaleCamera->getNodeMask(), 0u);
    EXPECT_EQ(handler->scaleLabel->getNodeMask(), 0u);
    osg::ref_ptr<osg::Image> hidden = grabFrame();

    globeManipulator()->setViewpoint(globeManipulator()->createViewpoint(109.0, 32.0, 0.0, 0.0, -90.0, 6370999.0),
                                     0.0);
    frames(1);
    EXPECT_NE(handler->scaleCamera->getNodeMask(), 0u);
    EXPECT_NE(handler->scaleLabel->getNodeMask(), 0u);
    EXPECT_NE(scaleText(), "");
    osg::ref_ptr<osg::Image> shown = grabFrame();
    // The white segment of the bar shows only in the second frame.
    const osg::Vec4ub before = cxtest::pixelAt(*hidden, 72, windowHeight - 1 - 8);
    const osg::Vec4ub after = cxtest::pixelAt(*shown, 72, windowHeight - 1 - 8);
    EXPECT_LT(before.r() + before.g() + before.b(), 300);
    EXPECT_GT(after.r() + after.g() + after.b(), 600);
}

TEST_F(Hud, AFrameWithTheMouseOffTheGlobeKeepsThePositionText)
{
    ASSERT_TRUE(settle()); // the start view, the globe in the middle
    mouseAtGL(windowWidth / 2.0, windowHeight / 2.0);
    frames(2);
    const std::string text = positionText();
    ASSERT_EQ(text.rfind("B:", 0), 0u) << text;
    const osg::Vec2f where = handler->coordinateLabel->renderPosition();
    const std::string scale = scaleText();

    mouseAtGL(windowWidth - 3.0, 3.0); // space
    frames(2);
    EXPECT_EQ(positionText(), text);
    EXPECT_EQ(scaleText(), scale);
    EXPECT_EQ(handler->coordinateLabel->renderPosition(), where);
}

TEST_F(Hud, TheCompassFollowsTheHeadingAfterAFlight)
{
    ASSERT_TRUE(settle());
    osg::ref_ptr<osg::Image> north = grabFrame();
    const RedHalves before = redHalves(*north);
    EXPECT_GT(before.up, 20) << "the red north point is up";
    EXPECT_EQ(before.down, 0);

    globe::EarthManipulator* manipulator = globeManipulator();
    manipulator->setViewpoint(manipulator->createViewpoint(116.4, 39.9, 0.0, 90.0, -60.0, 500000.0), 1.0);
    ASSERT_TRUE(settle());
    EXPECT_NEAR(manipulator->getViewpoint().getHeading(), 90.0, 1e-6);
    const osg::Quat turn = handler->compass->getMatrix().getRotate();
    double angle = 0.0;
    osg::Vec3d axis;
    turn.getRotate(angle, axis);
    EXPECT_NEAR(angle, osg::PI_2, 1e-9);
    EXPECT_NEAR(axis.z(), 1.0, 1e-9);

    // Looking east, north is to the left: so is the red point.
    osg::ref_ptr<osg::Image> east = grabFrame();
    const RedHalves after = redHalves(*east);
    EXPECT_GT(after.left, 20);
    EXPECT_EQ(after.right, 0);
    cxtest::saveScreenshot(*east, "hud_heading_90");
}

TEST_F(Hud, TheCompassFollowsEveryEventThePositionOnlyFrames)
{
    ASSERT_TRUE(settle());
    mouseAtGL(windowWidth / 2.0, windowHeight / 2.0);
    frames(2);
    const std::string text = positionText();
    ASSERT_NE(text, "");

    // A turn of the camera, then an event that is no frame.
    globe::EarthManipulator* manipulator = globeManipulator();
    const CXViewport now = manipulator->getViewpoint();
    manipulator->setViewpoint(CXViewport(now.getFocalPoint(), 45.0, now.getPitch(), now.getRange()), 0.0);
    osg::ref_ptr<osgGA::GUIEventAdapter> push = new osgGA::GUIEventAdapter;
    push->setEventType(osgGA::GUIEventAdapter::PUSH);
    push->setX(10.0f);
    push->setY(10.0f);
    handler->handle(*push, *viewer->getViewer());
    double angle = 0.0;
    osg::Vec3d axis;
    handler->compass->getMatrix().getRotate().getRotate(angle, axis);
    EXPECT_NEAR(angle, osg::DegreesToRadians(45.0), 1e-9);
    EXPECT_EQ(positionText(), text);

    // A frame with the mouse elsewhere on the globe changes the text.
    mouseAtGL(windowWidth / 2.0 + 40.0, windowHeight / 2.0 + 30.0);
    frames(1);
    EXPECT_NE(positionText(), text);
}

TEST_F(Hud, TheHudFollowsTheWindowWhenItIsResized)
{
    ASSERT_TRUE(settle());
    frames(1);
    EXPECT_EQ(handler->canvas->getViewport()->width(), windowWidth);
    EXPECT_EQ(handler->compassCamera->getViewport()->y(), windowHeight - 100.0);

    window->resize(400, 300);
    frames(3);
    const osg::Viewport* main = viewer->getViewer()->getCamera()->getViewport();
    ASSERT_EQ(main->width(), 400.0);
    ASSERT_EQ(main->height(), 300.0);
    const osg::Viewport* canvas = handler->canvas->getViewport();
    EXPECT_EQ(canvas->x(), 0.0);
    EXPECT_EQ(canvas->y(), 0.0);
    EXPECT_EQ(canvas->width(), 400.0);
    EXPECT_EQ(canvas->height(), 300.0);
    const osg::Viewport* compass = handler->compassCamera->getViewport();
    EXPECT_EQ(compass->x(), 0.0);
    EXPECT_EQ(compass->y(), 200.0);
    EXPECT_EQ(compass->width(), 100.0);
    EXPECT_EQ(compass->height(), 100.0);
    const osg::Viewport* scale = handler->scaleCamera->getViewport();
    EXPECT_EQ(scale->x(), 0.0);
    EXPECT_EQ(scale->y(), 0.0);
    EXPECT_EQ(scale->width(), 150.0);
    EXPECT_EQ(scale->height(), 30.0);

    // The position text moves with the middle of the window.
    mouseMove(200.0f, 150.0f);
    frames(1);
    EXPECT_FLOAT_EQ(handler->coordinateLabel->x(), 100.0f);
    EXPECT_FLOAT_EQ(handler->coordinateLabel->renderPosition().y() + handler->coordinateLabel->renderSize().y(),
                    300.0f);
}

TEST_F(Hud, ASecondCallAddsACanvasWhoseLabelsStayEmpty)
{
    CLableControlEventHandler* first = viewer->labelHandler;
    viewer->addViewPointLable();
    EXPECT_EQ(viewer->labelHandler, first);
    std::vector<globe::ControlCanvas*> canvases;
    for (unsigned int i = 0; i < viewer->getRoot()->getNumChildren(); ++i)
        if (auto* canvas = dynamic_cast<globe::ControlCanvas*>(viewer->getRoot()->getChild(i)))
            canvases.push_back(canvas);
    ASSERT_EQ(canvases.size(), 2u);
    EXPECT_EQ(canvases[0], handler->canvas.get());
    EXPECT_EQ(canvases[0]->getName(), "earthlabel");
    EXPECT_EQ(canvases[1]->getName(), "earthlabel");
    ASSERT_EQ(canvases[1]->getNumControls(), 2u);
    int handlers = 0;
    for (const auto& h : viewer->getViewer()->getEventHandlers())
        handlers += h.get() == first;
    EXPECT_EQ(handlers, 1);

    lookDownAt(116.4, 39.9, 0.0, 50000.0);
    mouseAtGL(windowWidth / 2.0 + 20.0, windowHeight / 2.0);
    frames(2);
    EXPECT_NE(canvases[0]->getControl(1)->text(), "");
    EXPECT_NE(canvases[0]->getControl(0)->text(), "");
    EXPECT_EQ(canvases[1]->getControl(0)->text(), "");
    EXPECT_EQ(canvases[1]->getControl(1)->text(), "");
}

TEST_F(Hud, TheHudCamerasSitInTheRoot)
{
    osg::Group* root = viewer->getRoot();
    EXPECT_TRUE(root->containsNode(handler->compassCamera.get()));
    EXPECT_TRUE(root->containsNode(handler->scaleCamera.get()));
    EXPECT_EQ(handler->compassCamera->getName(), "earthlabel");
    EXPECT_EQ(handler->scaleCamera->getName(), "earthlabel");
    EXPECT_EQ(handler->compassCamera->getRenderOrder(), osg::Camera::POST_RENDER);
    EXPECT_EQ(handler->compassCamera->getClearMask(), 0x100u);
    EXPECT_EQ(handler->compassCamera->getReferenceFrame(), osg::Transform::ABSOLUTE_RF);
    EXPECT_FALSE(handler->compassCamera->getAllowEventFocus());
    ASSERT_EQ(handler->compassCamera->getNumChildren(), 2u);
    EXPECT_EQ(handler->compassCamera->getChild(0), handler->plate.get());
    EXPECT_EQ(handler->compassCamera->getChild(1), handler->compass.get());
    // Until the first frame, the compass is at the top right, the bar hidden.
    EXPECT_EQ(handler->compassCamera->getViewport()->x(), windowWidth - 100.0);
    EXPECT_EQ(handler->compassCamera->getViewport()->y(), windowHeight - 100.0);
    EXPECT_EQ(handler->scaleCamera->getNodeMask(), 0u);
    ASSERT_EQ(handler->nodePath.size(), 1u);
    EXPECT_EQ(handler->nodePath.front(), root);
    EXPECT_EQ(handler->mapNode, viewer->mapNode.get());
    EXPECT_EQ(handler->view.get(), viewer->getViewer());
}

TEST_F(Hud, UnInitOSGLetsGoOfTheViewAndTheHandler)
{
    frames(1);
    osg::observer_ptr<osgViewer::View> view = viewer->getViewer();
    osg::observer_ptr<CLableControlEventHandler> held = handler;
    osg::observer_ptr<osg::Camera> compassCamera = handler->compassCamera.get();
    viewer->UnInitOSG();
    EXPECT_FALSE(view.valid());
    EXPECT_FALSE(held.valid());
    EXPECT_EQ(viewer->labelHandler, nullptr);
    // The HUD's cameras stay with the root, which the viewer still holds.
    EXPECT_TRUE(compassCamera.valid());
}
