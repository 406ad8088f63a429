// Rendering tests of the rendering modes on a plain scene (no map): a viewer
// after InitOSG whose camera the test places itself (no manipulator), the
// whole window read back after every camera has drawn, and unlit shapes in
// plain colours whose pixels the tests can tell apart.
#ifndef CXVIEWER_TESTS_PLAINSCENEFIXTURE_H
#define CXVIEWER_TESTS_PLAINSCENEFIXTURE_H

#include "ViewerFixture.h"
#include "WindowCapture.h"

#include <osg/Geode>
#include <osg/ShapeDrawable>

#include <cstdlib>
#include <string>

namespace cxtest
{

/** An unlit shape in one colour. */
inline osg::ref_ptr<osg::Geode> colouredShape(osg::Shape* shape, const osg::Vec4& colour, float detail = 1.0f)
{
    osg::ref_ptr<osg::TessellationHints> hints = new osg::TessellationHints;
    hints->setDetailRatio(detail);
    osg::ref_ptr<osg::ShapeDrawable> drawable = new osg::ShapeDrawable(shape, hints.get());
    drawable->setColor(colour);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(drawable.get());
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

/** Whether a pixel has this colour, within `tolerance` per channel. */
inline bool near(const osg::Vec4ub& pixel, int r, int g, int b, int tolerance = 3)
{
    return std::abs(pixel.r() - r) <= tolerance && std::abs(pixel.g() - g) <= tolerance &&
           std::abs(pixel.b() - b) <= tolerance;
}

/** "(r, g, b, a)" for failure messages. */
inline std::string describe(const osg::Vec4ub& p)
{
    return "(" + std::to_string(p.r()) + ", " + std::to_string(p.g()) + ", " + std::to_string(p.b()) + ", " +
           std::to_string(p.a()) + ")";
}

class PlainSceneFixture : public ViewerFixture
{
protected:
    PlainSceneFixture()
    {
        windowWidth = 480;
        windowHeight = 360;
    }

    void SetUp() override
    {
        ViewerFixture::SetUp();
        if (HasFatalFailure())
            return;
        preparePlainScene();
    }

    /** The test places the camera: no manipulator moves it. The whole window
      * is read back at the swap. */
    void preparePlainScene()
    {
        viewer->getViewer()->setCameraManipulator(nullptr, false);
        windowCapture = cxhost::WindowCapture::install(viewer->graphicsContext);
    }

    /** The main camera (and the vice view's, when there is one) looks from
      * `eye` at `center`. */
    void lookAt(const osg::Vec3d& eye, const osg::Vec3d& center, const osg::Vec3d& up = osg::Vec3d(0, 0, 1))
    {
        viewer->getViewer()->getCamera()->setViewMatrixAsLookAt(eye, center, up);
        if (viewer->GetViceView())
            viewer->GetViceView()->getCamera()->setViewMatrixAsLookAt(eye, center, up);
    }

    /** Draws one frame and returns the whole window as shown. */
    osg::ref_ptr<osg::Image> grabWindow()
    {
        windowCapture->arm();
        frames(1);
        return windowCapture->image();
    }

    /** The main camera's clear colour, in bytes. */
    osg::Vec4ub background() const
    {
        const osg::Vec4 c = viewer->getViewer()->getCamera()->getClearColor();
        return osg::Vec4ub(static_cast<unsigned char>(c.r() * 255.0f + 0.5f),
                           static_cast<unsigned char>(c.g() * 255.0f + 0.5f),
                           static_cast<unsigned char>(c.b() * 255.0f + 0.5f), 255);
    }

    osg::ref_ptr<cxhost::WindowCapture> windowCapture;
};

} // namespace cxtest

#endif
