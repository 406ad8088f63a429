#include <labels/CLableControlEventHandler>

#include <viewer/CXViewer>

#include <globe/EarthManipulator>
#include <globe/Fonts>
#include <globe/GeoPoint>
#include <globe/IntersectionPicker>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Texture2D>
#include <osgDB/ConvertUTF>
#include <osgDB/ReadFile>
#include <osgDB/Registry>

#include <QString>

#include <climits>
#include <cmath>

namespace
{

// The font of the readouts, read again at every frame: the registry's object
// cache hands back the one loaded font.
const char* const kReadoutFont = "simhei.ttf";

// The view's range from which the scale bar hides: the Earth's radius.
constexpr double kScaleBarMaximumRange = 6371000.0;

// Size in pixels of the compass's corner and of the scale bar's.
constexpr int kCompassPixels = 100;
constexpr int kScaleBarWidth = 150;
constexpr int kScaleBarHeight = 30;

// What the bar of mapscale.png spans on the screen, in pixels.
constexpr double kScaleBarPixels = 30.0;

// A heads-up camera over a corner of the window: drawn after the scene,
// over a cleared depth buffer, in its own absolute frame.
osg::ref_ptr<osg::Camera> makeHudCamera(const osg::Matrixd& projection)
{
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setProjectionMatrix(projection);
    camera->setRenderOrder(osg::Camera::POST_RENDER, 0);
    camera->setClearMask(GL_DEPTH_BUFFER_BIT);
    camera->setAllowEventFocus(false);
    camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    camera->setViewMatrix(osg::Matrixd::identity());
    // The quads lie where the orthographic projection puts them; their
    // bound must not narrow its depth range.
    camera->setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    osg::StateSet* state = camera->getOrCreateStateSet();
    state->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    state->setMode(GL_BLEND, osg::StateAttribute::ON);
    // The dial and the needle lie in one plane: they draw in their order
    // (dial first), not by a depth test that the second one would fail.
    state->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF);
    camera->setName("earthlabel");
    return camera;
}

globe::EarthManipulator* globeManipulatorOf(osgViewer::View* view)
{
    return view ? dynamic_cast<globe::EarthManipulator*>(view->getCameraManipulator()) : nullptr;
}

// The ground point under a window position of the view, as longitude,
// latitude and height; false (and `out` untouched) on a miss.
bool pickGround(const globe::IntersectionPicker& picker, const globe::SpatialReference* srs, int x, int y,
                osg::Vec3d& out)
{
    globe::IntersectionPicker::Hits hits;
    if (!srs || !picker.pick(static_cast<float>(x), static_cast<float>(y), hits))
        return false;
    osg::Vec3d point;
    if (!srs->transformFromWorld(hits.begin()->getWorldIntersectPoint(), point))
        return false;
    out = point;
    return true;
}

} // namespace

CLableControlEventHandler::CLableControlEventHandler(globe::LabelControl* coordinateLabel_,
                                                     globe::LabelControl* scaleLabel_,
                                                     osg::ref_ptr<globe::ControlCanvas> canvas_,
                                                     globe::MapNode* mapNode_, osg::ref_ptr<osgViewer::View> view_)
    : coordinateLabel(coordinateLabel_)
    , scaleLabel(scaleLabel_)
    , mapNode(mapNode_)
    , view(view_)
    , canvas(canvas_)
{
    nodePath.push_back(g_pCXviewer ? g_pCXviewer->getRoot() : nullptr);
}

CLableControlEventHandler::~CLableControlEventHandler() = default;

osg::ref_ptr<osg::MatrixTransform> CLableControlEventHandler::createImageQuad(const std::string& imagePath, float size,
                                                                              float z)
{
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(osg::createTexturedQuadGeometry(osg::Vec3(-size, -size, z), osg::Vec3(2.0f * size, 0.0f, 0.0f),
                                                       osg::Vec3(0.0f, 2.0f * size, 0.0f), 0.0f, 0.0f, 1.0f, 1.0f));

    osg::ref_ptr<osg::Image> image =
        osgDB::readRefImageFile(imagePath, osgDB::Registry::instance()->getOptions());
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image.get());
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    texture->setResizeNonPowerOfTwoHint(false);

    osg::ref_ptr<osg::MatrixTransform> transform = new osg::MatrixTransform;
    osg::StateSet* state = transform->getOrCreateStateSet();
    state->setTextureAttributeAndModes(0, texture.get(), osg::StateAttribute::ON);
    state->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
    transform->addChild(geode.get());
    return transform;
}

void CLableControlEventHandler::setupHud(const char* basePath)
{
    const std::string base = osgDB::convertStringFromUTF8toCurrentCodePage(basePath ? basePath : "");
    osg::Group* root = g_pCXviewer ? g_pCXviewer->getRoot() : nullptr;

    compass = createImageQuad(base + "/icon/Compass.PNG", 1.5f, -1.5f);
    plate = createImageQuad(base + "/icon/plate.PNG", 1.5f, -1.5f);

    // The top right corner of the window until the first frame moves it.
    const osg::Viewport* main = view.valid() && view->getCamera() ? view->getCamera()->getViewport() : nullptr;
    const double width = main ? main->width() : 0.0;
    const double height = main ? main->height() : 0.0;
    compassCamera = makeHudCamera(osg::Matrixd::ortho(-1.5, 1.5, -1.5, 1.5, -10.0, 10.0));
    compassCamera->setViewport(width - kCompassPixels, height - kCompassPixels, kCompassPixels, kCompassPixels);
    compassCamera->addChild(plate.get());
    compassCamera->addChild(compass.get());
    if (root)
        root->addChild(compassCamera.get());

    osg::ref_ptr<osg::MatrixTransform> scaleBar =
        createImageQuad(base + "/myselftest/data/mapscale.png", 3.0f, -2.0f);
    scaleCamera = makeHudCamera(osg::Matrixd::ortho(-3.5, 2.5, -1.5, 1.5, -10.0, 10.0));
    scaleCamera->setViewport(0, 0, 0, 0);
    scaleCamera->addChild(scaleBar.get());
    if (root)
        root->addChild(scaleCamera.get());
    scaleCamera->setNodeMask(0);
}

int CLableControlEventHandler::measureScale(const globe::SpatialReference* mapSRS, const osg::Vec3d& p1,
                                            const osg::Vec3d& p2)
{
    if (!mapSRS)
        return 0;
    const globe::SpatialReference* utm = mapSRS->createUTMFromLonLat(p1.x(), p1.y());
    osg::Vec3d q1, q2;
    if (!utm || !mapSRS->transform(p1, utm, q1) || !mapSRS->transform(p2, utm, q2))
        return 0;
    const double metres = (q1 - q2).length() * kScaleBarPixels;
    if (!std::isfinite(metres) || metres < 0.0)
        return 0;
    if (metres >= static_cast<double>(INT_MAX))
        return INT_MAX;
    return static_cast<int>(metres);
}

std::string CLableControlEventHandler::formatScale(int metres)
{
    QString text;
    if (metres > 1000)
    {
        text = QString::number(metres / 1000.0, 'g', 6) + QStringLiteral(" km");
    }
    else if (metres > 1)
    {
        text = QString::number(metres, 10) + QStringLiteral(" m");
    }
    else
    {
        metres = 1;
        text = QString::number(metres, 10) + QStringLiteral(" m");
    }
    return text.toUtf8().toStdString();
}

std::string CLableControlEventHandler::formatPosition(double longitude, double latitude, double height)
{
    // Significant digits, six for the longitude and the latitude and two for
    // the height, the readout's format that hosts parse. It has always been
    // asked for with the format character 'r', which the string class took as
    // its default, significant digits; Qt 5 falls back to fixed-point for a
    // character it does not know, so the format is named here.
    const QString text = QStringLiteral("B:%1  L:%2  H:%3")
                             .arg(longitude, 0, 'g', 6, QLatin1Char(' '))
                             .arg(latitude, 0, 'g', 6, QLatin1Char(' '))
                             .arg(height, 0, 'g', 2, QLatin1Char(' '));
    return text.toUtf8().toStdString();
}

bool CLableControlEventHandler::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa)
{
    // The view that sent the event; the handler works on its own view.
    static_cast<void>(dynamic_cast<osgViewer::View*>(&aa));

    const bool haveViewer = g_pCXviewer && g_pCXviewer->getViewer();
    if (haveViewer && ea.getEventType() == osgGA::GUIEventAdapter::FRAME)
        updateOnFrame(ea);

    // The compass turns with every event.
    if (haveViewer && compass.valid())
    {
        if (globe::EarthManipulator* manipulator = globeManipulatorOf(view.get()))
        {
            const double heading = manipulator->getViewpoint().getHeading();
            compass->setMatrix(osg::Matrixd::rotate(heading * 3.141592653589793 / 180.0, osg::Vec3d(0.0, 0.0, 1.0)));
        }
    }
    return false;
}

void CLableControlEventHandler::updateOnFrame(const osgGA::GUIEventAdapter& ea)
{
    osg::Camera* mainCamera = view.valid() ? view->getCamera() : nullptr;
    const osg::Viewport* viewport = mainCamera ? mainCamera->getViewport() : nullptr;
    if (!viewport)
        return;

    // The HUD in the window's corners: the labels over all of it, the
    // compass at the top left, the scale bar at the bottom left.
    const int w = static_cast<int>(viewport->width());
    const int h = static_cast<int>(viewport->height());
    if (canvas.valid())
        canvas->setViewport(0, 0, w, h);
    if (compassCamera.valid())
        compassCamera->setViewport(0, h - kCompassPixels, kCompassPixels, kCompassPixels);
    if (scaleCamera.valid())
        scaleCamera->setViewport(0, 0, kScaleBarWidth, kScaleBarHeight);

    // What the bar spans at the window's centre: two ground picks a pixel
    // apart. A miss leaves its point at zero.
    const globe::SpatialReference* srs = mapNode ? mapNode->getMapSRS() : nullptr;
    const int cx = w / 2;
    const int cy = h / 2;
    osg::Vec3d p1, p2;
    if (g_pCXviewer && g_pCXviewer->mapNode.valid())
    {
        const globe::IntersectionPicker picker(view.get(), g_pCXviewer->mapNode.get(), 0xFFFFFFFFu, 5.0f,
                                               globe::IntersectionPicker::LIMIT_NEAREST);
        pickGround(picker, srs, cx, cy, p1);
        pickGround(picker, srs, cx + 1, cy, p2);
    }
    const int metres = measureScale(srs, p1, p2);
    const std::string scaleText = formatScale(metres);

    // The position under the mouse; off the scene the labels stay as they are.
    if (nodePath.empty() || !nodePath.back())
        return;
    osgUtil::LineSegmentIntersector::Intersections hits;
    if (!view->computeIntersections(ea.getX(), ea.getY(), nodePath, hits, 0xFFFFFFFFu) || hits.empty())
        return;
    globe::GeoPoint point;
    if (srs)
        point.fromWorld(srs, hits.begin()->getWorldIntersectPoint());

    globe::EarthManipulator* manipulator = globeManipulatorOf(view.get());
    if (!manipulator)
        return;
    const CXViewport viewpoint = manipulator->getViewpoint();

    osg::ref_ptr<osgText::Font> font = globe::readFont(kReadoutFont);
    if (coordinateLabel)
    {
        coordinateLabel->setEncoding(osgText::String::ENCODING_UTF8);
        coordinateLabel->setForeColor(1.0f, 1.0f, 1.0f, 1.0f);
        coordinateLabel->setFont(font.get());
        coordinateLabel->setFontSize(15.0f);
        coordinateLabel->setText(formatPosition(point.x(), point.y(), point.z()));
        coordinateLabel->setPosition(static_cast<float>(w / 2 - 100), 0.0f);
    }

    // The bar vanishes once the view is as far out as the Earth's radius.
    const bool showScale = viewpoint.getRange() < kScaleBarMaximumRange;
    if (scaleLabel)
    {
        if (showScale)
        {
            scaleLabel->setForeColor(1.0f, 1.0f, 1.0f, 1.0f);
            scaleLabel->setFontSize(15.0f);
            scaleLabel->setFont(font.get());
            scaleLabel->setText(scaleText);
        }
        scaleLabel->setNodeMask(showScale ? 1u : 0u);
    }
    if (scaleCamera.valid())
        scaleCamera->setNodeMask(showScale ? 1u : 0u);
}
