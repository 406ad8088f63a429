#include <globe/ModelNode>

#include <cmath>

namespace globe
{

namespace
{

const osg::EllipsoidModel& wgs84()
{
    static const osg::ref_ptr<osg::EllipsoidModel> ellipsoid = new osg::EllipsoidModel;
    return *ellipsoid;
}

double finiteOr(double value, double fallback)
{
    return std::isfinite(value) ? value : fallback;
}

} // namespace

ModelNode::ModelNode()
    : _transform(new osg::MatrixTransform)
{
    addChild(_transform.get());
    updateTransform();
}

ModelNode::ModelNode(MapNode* mapNode, const Style& style)
    : _mapNode(mapNode)
    , _style(style)
    , _transform(new osg::MatrixTransform)
{
    addChild(_transform.get());
    updateTransform();
}

ModelNode::ModelNode(const ModelNode& rhs, const osg::CopyOp& copyop)
    : osg::Group(rhs, copyop)
    , _mapNode(rhs._mapNode)
    , _style(rhs._style)
    , _position(rhs._position)
{
    // A shallow copy of the group shares the children; the copy gets a
    // transform of its own so that placing one does not move the other.
    osg::MatrixTransform* copied = getNumChildren() > 0 ? dynamic_cast<osg::MatrixTransform*>(getChild(0)) : nullptr;
    if (!copied || copied == rhs._transform.get())
    {
        _transform = new osg::MatrixTransform(*rhs._transform, osg::CopyOp::SHALLOW_COPY);
        if (getNumChildren() > 0 && copied)
            setChild(0, _transform.get());
        else
            insertChild(0, _transform.get());
    }
    else
    {
        _transform = copied;
    }
    updateTransform();
}

ModelNode::~ModelNode() = default;

void ModelNode::setMapNode(MapNode* mapNode)
{
    _mapNode = mapNode;
    updateTransform();
}

MapNode* ModelNode::getMapNode() const
{
    osg::ref_ptr<MapNode> mapNode;
    _mapNode.lock(mapNode);
    return mapNode.get();
}

bool ModelNode::setPosition(double longitude, double latitude, double height)
{
    if (!std::isfinite(longitude) || !std::isfinite(latitude) || !std::isfinite(height) || latitude < -90.0 ||
        latitude > 90.0)
        return false;
    _position.set(longitude, latitude, height);
    updateTransform();
    return true;
}

bool ModelNode::setPosition(const osg::Vec3d& lonLatHeight)
{
    return setPosition(lonLatHeight.x(), lonLatHeight.y(), lonLatHeight.z());
}

bool ModelNode::setPosition(const GeoPoint& point)
{
    const SpatialReference* wgs84Geographic = SpatialReference::create("wgs84");
    GeoPoint geographic;
    if (!point.valid() || !wgs84Geographic || !point.transform(wgs84Geographic, geographic))
        return false;
    return setPosition(geographic.x(), geographic.y(), geographic.z());
}

void ModelNode::setStyle(const Style& style)
{
    _style = style;
    updateTransform();
}

osg::Matrixd ModelNode::computePlacement(const osg::EllipsoidModel& ellipsoid, const osg::Vec3d& lonLatHeight,
                                         const ModelSymbol* symbol)
{
    osg::Matrixd frame;
    ellipsoid.computeLocalToWorldTransformFromLatLongHeight(osg::DegreesToRadians(lonLatHeight.y()),
                                                            osg::DegreesToRadians(lonLatHeight.x()),
                                                            lonLatHeight.z(), frame);
    if (!symbol)
        return frame;
    const double heading = osg::DegreesToRadians(finiteOr(symbol->heading(), 0.0));
    const double pitch = osg::DegreesToRadians(finiteOr(symbol->pitch(), 0.0));
    const double roll = osg::DegreesToRadians(finiteOr(symbol->roll(), 0.0));
    const osg::Matrixd scale = osg::Matrixd::scale(finiteOr(symbol->scaleX(), 1.0), finiteOr(symbol->scaleY(), 1.0),
                                                   finiteOr(symbol->scaleZ(), 1.0));
    // Row vectors: the leftmost matrix acts first. Heading turns clockwise
    // seen from above, hence the negative angle about up.
    return scale * osg::Matrixd::rotate(roll, osg::Y_AXIS) * osg::Matrixd::rotate(pitch, osg::X_AXIS) *
           osg::Matrixd::rotate(-heading, osg::Z_AXIS) * frame;
}

void ModelNode::updateTransform()
{
    osg::ref_ptr<MapNode> mapNode;
    _mapNode.lock(mapNode);
    const osg::EllipsoidModel* ellipsoid = mapNode.valid() ? mapNode->getEllipsoidModel() : nullptr;
    const ModelSymbol* symbol = _style.getModelSymbol();
    _transform->setMatrix(computePlacement(ellipsoid ? *ellipsoid : wgs84(), _position, symbol));

    osg::Node* model = symbol ? symbol->getModel() : nullptr;
    const bool placed = model ? (_transform->getNumChildren() == 1 && _transform->getChild(0) == model)
                              : _transform->getNumChildren() == 0;
    if (!placed)
    {
        _transform->removeChildren(0, _transform->getNumChildren());
        if (model)
            _transform->addChild(model);
    }
}

} // namespace globe
