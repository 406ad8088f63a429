#include <rendering/CXSunLight>

#include <osg/GL>
#include <osg/Math>
#include <osg/Quat>

#include <cmath>

CXSunLight::CXSunLight(osg::Node* node, osgViewer::View* view)
{
    if (node)
    {
        osg::StateSet* stateSet = node->getOrCreateStateSet();
        stateSet->setMode(GL_LIGHTING, osg::StateAttribute::ON);
        stateSet->setMode(GL_LIGHT0, osg::StateAttribute::ON);
        stateSet->setMode(GL_LIGHT1, osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
        // Brings the node's bound up to date; the value itself is not needed.
        node->computeBound();
    }

    if (view)
    {
        // The view's light in world coordinates, directional (w = 0).
        view->setLightingMode(osg::View::SKY_LIGHT);
        if (osg::Light* viewLight = view->getLight())
        {
            viewLight->setAmbient(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
            viewLight->setPosition(osg::Vec4(500.0f, 500.0f, 1000.0f, 0.0f));
            viewLight->setDiffuse(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
        }
    }

    light = new osg::Light;
    light->setLightNum(1);
    light->setPosition(osg::Vec4(500.0f, 500.0f, 1000.0f, 0.0f));
    light->setAmbient(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    light->setDiffuse(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    light->setConstantAttenuation(1.0f);
    light->setLinearAttenuation(0.0f);
    light->setQuadraticAttenuation(0.0f);

    lightSource = new osg::LightSource;
    lightSource->setLight(light.get());
    lightSource->setLocalStateSetModes(osg::StateAttribute::ON);
    addChild(lightSource.get());
}

CXSunLight::CXSunLight(const CXSunLight& rhs)
    : osg::Group(rhs), light(rhs.light), lightSource(rhs.lightSource)
{
}

CXSunLight::~CXSunLight() = default;

osg::ref_ptr<osg::LightSource> CXSunLight::getLS()
{
    return lightSource;
}

void CXSunLight::changeA(osg::Vec3d position)
{
    light->setPosition(osg::Vec4(static_cast<float>(position.x()), static_cast<float>(position.y()),
                                 static_cast<float>(position.z()), 0.0f));
}

void CXSunLight::shadowAnalysisON(osg::Node*, osgViewer::View*)
{
}

void CXSunLight::shadowAnalysisOFF(osg::Node*)
{
}

osg::AnimationPath* CXSunLight::createAnimationPath(const osg::Vec3f& center, float radius, double looptime)
{
    osg::ref_ptr<osg::AnimationPath> path = new osg::AnimationPath;
    path->setLoopMode(osg::AnimationPath::LOOP);

    const int samples = 40;
    float yaw = 0.0f;
    const float yawDelta = 2.0f * osg::PIf / (static_cast<float>(samples) - 1.0f);
    const float roll = osg::inDegrees(30.0f);
    double time = 0.0;
    const double timeDelta = looptime / static_cast<double>(samples);

    for (int i = 0; i < samples; ++i)
    {
        const osg::Vec3 position(center + osg::Vec3(0.0f, std::sin(yaw) * radius, std::cos(yaw) * radius));
        const osg::Quat rotation(osg::Quat(roll, osg::Vec3(0.0f, 1.0f, 0.0f)) *
                                 osg::Quat(-(yaw + osg::inDegrees(90.0f)), osg::Vec3(0.0f, 0.0f, 1.0f)));
        path->insert(time, osg::AnimationPath::ControlPoint(position, rotation));
        yaw += yawDelta;
        time += timeDelta;
    }
    return path.release();
}
