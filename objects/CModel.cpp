#include <objects/CModel>
#include <objects/CNCObj>
#include <objects/CObjManager>
#include <objects/PropertyText>

#include <viewer/CXViewer>

#include <globe/GeoPoint>

#include <osg/PagedLOD>
#include <osgDB/FileUtils>

#include <cmath>
#include <cstdint>
#include <vector>

namespace OBJManage
{

namespace
{

// A model's paged node gives way to finer files closer than these.
constexpr double kSmallRadius = 15.0;  // below: one tier of 1000 m
constexpr double kLargeRadius = 60.0;  // from here on: the "other" tier
constexpr double kSmallDistance = 1000.0;
constexpr double kTerrainCrudeDistance = 6000.0;
// Past this position in the path the word "crude" is not replaced.
constexpr std::size_t kCrudeSearchLimit = 1000;

// Priority of the files of a model's paged node, by object type.
float priorityOf(int objType)
{
    return objType == 0 ? 0.1f : objType == 1 ? 0.2f : 0.0f;
}

// Two distances differ enough for an entry between them.
bool gap(double from, double to)
{
    return static_cast<float>(to - from) > 1.0f;
}

osg::Material* makeMaterial(const osg::Vec4& colour)
{
    auto* material = new osg::Material;
    material->setDiffuse(osg::Material::FRONT_AND_BACK, colour);
    // The colour shows on faces away from the sun as well.
    material->setAmbient(osg::Material::FRONT_AND_BACK, colour);
    return material;
}

} // namespace

CModel::CModel() = default;

CModel::CModel(globe::MapNode* mapNode, const globe::Style& style) : globe::ModelNode(mapNode, style) {}

CModel::CModel(const CModel& rhs, const osg::CopyOp& copyop)
    : globe::ModelNode(rhs, copyop),
      objID(rhs.objID),
      enterID(rhs.enterID),
      fileName(rhs.fileName),
      modelName(rhs.modelName),
      visible(rhs.visible),
      radius(rhs.radius),
      objType(rhs.objType),
      pos(rhs.pos),
      angle(rhs.angle),
      axisY(rhs.axisY),
      axisZ(rhs.axisZ),
      scale(rhs.scale),
      translation(rhs.translation),
      qtnID(rhs.qtnID)
{
}

CModel::~CModel() = default;

osg::Material* CModel::highlightMaterial()
{
    static osg::ref_ptr<osg::Material> material = makeMaterial(osg::Vec4(1.0f, 1.0f, 0.0f, 1.0f));
    return material.get();
}

osg::Material* CModel::colorMaterial()
{
    static osg::ref_ptr<osg::Material> material = makeMaterial(osg::Vec4(1.0f, 0.0f, 0.0f, 1.0f));
    return material.get();
}

bool CModel::Init(DBManage::ShowObjProperty* property)
{
    if (!property)
        return false;
    objID = property->objID;
    enterID = property->enterID;
    visible = property->visible != 0;
    radius = property->radius;
    modelName = property->objName;
    objType = property->objType;
    pos.set(property->posX, property->posY, property->posZ);
    setName(property->objName);

    if (property->propertyText.empty())
        return false;
    PropertyValues values;
    values.angle = angle;
    values.scale = scale;
    if (!readPropertyText(property->propertyText, values))
        return false;
    fileName = values.fileName;
    angle = values.angle;
    scale = values.scale;

    CXViewer* viewer = g_pCXviewer;
    const std::string root = viewer ? viewer->modelRootPath : std::string();

    // The stored name is the crude form; the others replace that word.
    const std::string crude = root + fileName;
    std::string fine, middle, crude2;
    const std::size_t at = crude.find("crude");
    if (at != std::string::npos && at < kCrudeSearchLimit)
    {
        fine = crude.substr(0, at) + "fine" + crude.substr(at + 5);
        middle = crude.substr(0, at) + "middle" + crude.substr(at + 5);
        crude2 = crude.substr(0, at) + "crude2" + crude.substr(at + 5);
    }

    // The distances of the object's size.
    double dFine = kSmallDistance, dMiddle = 0.0, dCrude = 0.0, dCrude2 = 0.0;
    if (radius >= kSmallRadius && viewer)
    {
        const bool sixty = radius < kLargeRadius;
        dFine = sixty ? viewer->lessSixtyFine : viewer->otherFine;
        dMiddle = sixty ? viewer->lessSixtyMiddle : viewer->otherMiddle;
        dCrude = sixty ? viewer->lessSixtyCrude : viewer->otherCrude;
        dCrude2 = sixty ? viewer->lessSixtyCrude2 : viewer->otherCrude2;
        if (objType == 1)
            dCrude = kTerrainCrudeDistance;
    }

    osg::ref_ptr<osg::PagedLOD> plod = new osg::PagedLOD;
    plod->setCenter(osg::Vec3d());
    plod->setRadius(static_cast<float>(radius));
    plod->setRangeMode(osg::LOD::DISTANCE_FROM_EYE_POINT);
    if (objType == 0 && viewer)
        plod->setDatabaseOptions(viewer->readOptions.get());
    const float priority = priorityOf(objType);

    const bool hasFine = !fine.empty() && osgDB::fileExists(fine);
    const bool hasMiddle = !middle.empty() && osgDB::fileExists(middle);
    const bool hasCrude = osgDB::fileExists(crude);
    const bool hasCrude2 = !crude2.empty() && osgDB::fileExists(crude2);
    const bool big = radius > kSmallRadius;
    const bool small = !big;

    struct Entry
    {
        const std::string* file;
        double from, to;
    };
    std::vector<Entry> entries;
    bool cullCallback = true;
    if (hasFine && hasMiddle && hasCrude)
    {
        if (hasCrude2 && big && gap(dCrude, dCrude2))
            entries.push_back({&crude2, dCrude, dCrude2});
        if (big && gap(dMiddle, dCrude))
            entries.push_back({&crude, dMiddle, dCrude});
        if (big && gap(dFine, dMiddle))
            entries.push_back({&middle, dFine, dMiddle});
        entries.push_back({&fine, 0.0, dFine});
    }
    else if (hasFine && hasCrude)
    {
        if (big && gap(dFine, dCrude))
            entries.push_back({&crude, dFine, dCrude});
        entries.push_back({&fine, 0.0, dFine});
    }
    else if (hasFine && hasMiddle)
    {
        if (big && gap(dFine, dMiddle))
            entries.push_back({&middle, dFine, dMiddle});
        entries.push_back({&fine, 0.0, dFine});
    }
    else if (hasMiddle && hasCrude)
    {
        if (big && gap(dMiddle, dCrude))
            entries.push_back({&crude, dMiddle, dCrude});
        cullCallback = dMiddle > 0.0;
        if (dMiddle > 0.0)
            entries.push_back({&middle, 0.0, small ? dFine : dMiddle});
    }
    else if (hasCrude)
        entries.push_back({&crude, 0.0, small ? kSmallDistance : dCrude});
    else if (hasMiddle)
        entries.push_back({&middle, 0.0, small ? kSmallDistance : dMiddle});
    else if (hasFine)
        entries.push_back({&fine, 0.0, small ? kSmallDistance : dFine});
    else
        return false;

    for (unsigned int i = 0; i < entries.size(); ++i)
    {
        plod->setFileName(i, *entries[i].file);
        plod->setRange(i, static_cast<float>(entries[i].from), static_cast<float>(entries[i].to));
        plod->setPriorityOffset(i, priority);
    }
    if (cullCallback)
        plod->setCullCallback(new CNCObj(enterID, radius, pos));

    place(plod.get());
    // Visible at creation whatever the stored wish: only SetObjVisible acts on it.
    setNodeMask(0xff);
    return true;
}

void CModel::place(osg::Node* model)
{
    globe::Style style(getStyle(), osg::CopyOp(osg::CopyOp::DEEP_COPY_ALL));
    globe::ModelSymbol* symbol = style.getOrCreateModelSymbol();
    if (model)
        symbol->setModel(model);
    symbol->heading() = angle.x();
    symbol->pitch() = angle.y();
    symbol->roll() = angle.z();
    symbol->scaleX() = scale.x();
    symbol->scaleY() = scale.y();
    symbol->scaleZ() = scale.z();
    setStyle(style);

    globe::MapNode* mapNode = g_pCXviewer ? g_pCXviewer->mapNode.get() : getMapNode();
    if (mapNode)
        setPosition(globe::GeoPoint(mapNode->getMap()->getSRS(), pos));
    else
        setPosition(pos);
    setMapNode(mapNode);
}

void CModel::SetObjVisible(bool on)
{
    if (on == visible)
        return;
    visible = on;
    setNodeMask(on ? 0xff : 0x0);
}

void CModel::SetModelHighLight(bool on)
{
    osg::StateSet* ss = getOrCreateStateSet();
    if (on)
    {
        ss->setAttributeAndModes(highlightMaterial(), osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    }
    else if (GetObjManager()->isModelColor(static_cast<int>(static_cast<std::uint32_t>(objID))))
    {
        SetModelColor(1);
        return;
    }
    else
    {
        ss->removeAttribute(highlightMaterial());
    }
    syncLighting();
}

void CModel::SetModelColor(int value)
{
    osg::StateSet* ss = getOrCreateStateSet();
    if (value == 1)
        ss->setAttributeAndModes(colorMaterial(), osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE);
    else if (value == 0)
        ss->removeAttribute(highlightMaterial());
    else
        return;
    syncLighting();
}

void CModel::syncLighting()
{
    osg::StateSet* ss = getOrCreateStateSet();
    if (ss->getAttribute(osg::StateAttribute::MATERIAL))
        ss->setMode(GL_LIGHTING, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    else
        ss->removeMode(GL_LIGHTING);
}

bool CModel::updateLod()
{
    CXViewer* viewer = g_pCXviewer;
    if (!viewer || !viewer->getViewer())
        return true;
    osg::Vec3d eye, centre, up;
    viewer->getViewer()->getCamera()->getViewMatrixAsLookAt(eye, centre, up, 1.0);
    // The eye is in world coordinates and pos in map coordinates, as they
    // stand: no conversion is made.
    const double d = (eye - pos).length();
    const double dz = std::fabs(eye.z() - pos.z());
    const bool terrain = viewer->isTerrainGroup(enterID);
    if (d != 0.0 && !terrain)
    {
        const bool flatAndFar =
            (d >= 1500.0 && dz < 30.0) || (d >= 1700.0 && dz < 50.0) || (d >= 2000.0 && dz < 100.0);
        return !(radius < 1000.0 && flatAndFar);
    }
    return !(terrain && d >= 3000.0 && dz < 50.0 && radius < 1000.0);
}

void CModel::SetModelData(modeData data)
{
    pos = data.pos;
    scale = osg::Vec3f(data.scale);
    angle = osg::Vec3f(data.angle);
    // The copied symbol keeps the paged node of Init.
    place(nullptr);
}

std::string CModel::createPropertyStr() const
{
    PropertyValues values;
    values.fileName = fileName;
    values.translation = translation;
    values.angle = angle;
    values.scale = scale;
    return writePropertyText(values);
}

bool CModel::SaveAdjustmentModel()
{
    osg::ref_ptr<DBManage::ShowObjProperty> record = new DBManage::ShowObjProperty;
    record->objID = static_cast<int>(static_cast<std::uint32_t>(objID));
    record->enterID = enterID;
    record->objName = getName();
    record->visible = visible ? 1 : 0;
    record->propertyText = createPropertyStr();
    record->posX = pos.x();
    record->posY = pos.y();
    record->posZ = pos.z();
    record->radius = radius;
    record->reserved0 = record->reserved1 = record->reserved2 = 0.0;
    record->objType = objType;
    return DBManage::getDBManger()->ShowObjUpdateInfo(record.get());
}

osg::MatrixTransform* CModel::getMT()
{
    return getNumChildren() > 0 ? dynamic_cast<osg::MatrixTransform*>(getChild(0)) : nullptr;
}

void CModel::applyMatrix()
{
    const osg::Vec3f x = axisY ^ axisZ;
    const osg::Matrixd rows(x.x(), x.y(), x.z(), 0.0, axisY.x(), axisY.y(), axisY.z(), 0.0, axisZ.x(), axisZ.y(),
                            axisZ.z(), 0.0, pos.x(), pos.y(), pos.z(), 1.0);
    if (osg::MatrixTransform* mt = getMT())
        mt->setMatrix(osg::Matrixd::scale(osg::Vec3d(scale)) * rows);
}

} // namespace OBJManage
