#include <globe/PlaceNode>

#include <globe/Fonts>
#include <globe/HorizonCullCallback>

#include <osg/StateSet>
#include <osgUtil/CullVisitor>
#include <osgUtil/IntersectionVisitor>

#include <algorithm>
#include <cmath>

namespace globe
{

namespace
{

// After the opaque scene and the sky (bins 7 to 9), sorted back to front.
constexpr int kLabelBin = 20;

// How far under the point the occluding ellipsoid lies, as a fraction of
// the radius (about 6 mm): a point on the surface does not hide itself.
constexpr double kHorizonTolerance = 1.0e-9;

osgText::String::Encoding textEncoding(TextSymbol::Encoding encoding)
{
    switch (encoding)
    {
    case TextSymbol::ENCODING_ASCII:
        return osgText::String::ENCODING_ASCII;
    case TextSymbol::ENCODING_UTF16:
        return osgText::String::ENCODING_UTF16;
    case TextSymbol::ENCODING_UTF32:
        return osgText::String::ENCODING_UTF32;
    case TextSymbol::ENCODING_UTF8:
    default:
        return osgText::String::ENCODING_UTF8;
    }
}

const osg::EllipsoidModel& wgs84()
{
    static const osg::ref_ptr<osg::EllipsoidModel> ellipsoid = new osg::EllipsoidModel;
    return *ellipsoid;
}

} // namespace

PlaceNode::PlaceNode()
{
    build();
}

PlaceNode::PlaceNode(const GeoPoint& position, const std::string& text, const Style& style,
                     const osgDB::Options* readOptions)
    : _text(text)
    , _style(style)
    , _readOptions(readOptions)
{
    build();
    setPosition(position);
}

PlaceNode::PlaceNode(const PlaceNode& rhs, const osg::CopyOp& copyop)
    : osg::Group()
    , _text(rhs._text)
    , _style(rhs._style)
    , _readOptions(rhs._readOptions)
{
    // The label's own parts are made afresh; the group's name, mask and
    // state come along, the parts of the source stay with it.
    setName(rhs.getName());
    setNodeMask(rhs.getNodeMask());
    if (rhs.getStateSet())
        setStateSet(copyop(rhs.getStateSet()));
    build();
    setPosition(rhs._position);
}

PlaceNode::~PlaceNode() = default;

void PlaceNode::build()
{
    _label = new osgText::Text;
    _label->setDataVariance(osg::Object::DYNAMIC);
    _label->setAutoRotateToScreen(true);
    _label->setCharacterSizeMode(osgText::Text::SCREEN_COORDS);
    _label->setAlignment(osgText::Text::CENTER_CENTER);
    // The text's bound is only known at draw time in screen units: the
    // horizon test below decides alone whether the label is drawn.
    _label->setCullingActive(false);

    _geode = new osg::Geode;
    _geode->addDrawable(_label.get());
    _geode->setCullingActive(false);
    osg::StateSet* state = _geode->getOrCreateStateSet();
    state->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    state->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    state->setRenderBinDetails(kLabelBin, "DepthSortedBin");

    _transform = new osg::MatrixTransform;
    _transform->addChild(_geode.get());
    _transform->setNodeMask(0); // until there is a position
    addChild(_transform.get());
    applyStyle();
}

bool PlaceNode::setPosition(const GeoPoint& position)
{
    osg::Vec3d world;
    if (!position.valid() || !position.toWorld(world) || !world.valid())
        return false;
    _position = position;
    _world = world;
    _placed = true;
    updatePlacement();
    return true;
}

void PlaceNode::setText(const std::string& text)
{
    if (text == _text)
        return;
    _text = text;
    applyStyle();
}

void PlaceNode::setStyle(const Style& style)
{
    _style = style;
    applyStyle();
}

void PlaceNode::applyStyle()
{
    const osg::ref_ptr<TextSymbol> defaults = new TextSymbol;
    const TextSymbol* symbol = _style.getTextSymbol() ? _style.getTextSymbol() : defaults.get();
    const double size = std::isfinite(symbol->size()) && symbol->size() > 0.0 ? symbol->size() : 16.0;
    osg::ref_ptr<osgText::Font> font = readFont(symbol->font(), _readOptions.get());
    if (font.valid())
        _label->setFont(font.get());
    const unsigned int resolution = static_cast<unsigned int>(std::clamp(std::ceil(size), 8.0, 128.0));
    _label->setFontResolution(resolution, resolution);
    _label->setCharacterSize(static_cast<float>(size));
    _label->setColor(symbol->fill());
    _label->setText(_text, textEncoding(symbol->encoding()));
}

void PlaceNode::updatePlacement()
{
    _transform->setMatrix(osg::Matrixd::translate(_world));
    _transform->setNodeMask(_placed ? ~0u : 0u);
    dirtyBound();
}

bool PlaceNode::isHiddenFrom(const osg::Vec3d& eye) const
{
    if (!_placed || !eye.valid())
        return false;
    const osg::EllipsoidModel* ellipsoid =
        _position.getSRS() && _position.getSRS()->getEllipsoid() ? _position.getSRS()->getEllipsoid() : &wgs84();
    const double a = ellipsoid->getRadiusEquator();
    const double b = ellipsoid->getRadiusPolar();
    if (!(a > 0.0) || !(b > 0.0))
        return false;
    // In coordinates where the ellipsoid is the unit sphere, straight lines
    // stay straight: the point is hidden when the line of sight from the eye
    // passes through the sphere, shrunk a hair under the point.
    const osg::Vec3d scale(1.0 / a, 1.0 / a, 1.0 / b);
    const osg::Vec3d e(eye.x() * scale.x(), eye.y() * scale.y(), eye.z() * scale.z());
    const osg::Vec3d p(_world.x() * scale.x(), _world.y() * scale.y(), _world.z() * scale.z());
    const double occluder = std::min(1.0, p.length()) * (1.0 - kHorizonTolerance);
    return HorizonCullCallback::isHidden(e, p, 0.0, occluder);
}

void PlaceNode::traverse(osg::NodeVisitor& nv)
{
    if (nv.asIntersectionVisitor())
        return;
    if (osgUtil::CullVisitor* cv = nv.asCullVisitor())
        if (isHiddenFrom(cv->getEyeLocal()))
            return;
    osg::Group::traverse(nv);
}

} // namespace globe
