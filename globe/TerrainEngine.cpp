#include <globe/TerrainEngine>

#include "TerrainProgram.h"
#include "TerrainTileBuilder.h"

#include <osg/CullFace>
#include <osg/Material>
#include <osg/NodeVisitor>

#include <algorithm>
#include <cmath>

namespace globe
{

struct TerrainEngine::Settings
{
    detail::TerrainSettings values;
    /** The values the current tiles were built with. */
    detail::TerrainSettings built;
};

TerrainEngine::TerrainEngine() : TerrainEngine(nullptr, nullptr) {}

TerrainEngine::TerrainEngine(Map* map, const osg::EllipsoidModel* ellipsoid)
    : _map(map ? map : new Map),
      _ellipsoid(ellipsoid ? ellipsoid : new osg::EllipsoidModel),
      _settings(std::make_unique<Settings>())
{
    // The update traversal keeps the tiles in line with the map.
    setNumChildrenRequiringUpdateTraversal(1);
    setUpStateSet();
}

TerrainEngine::TerrainEngine(const TerrainEngine& rhs, const osg::CopyOp& copyop)
    : osg::Node(rhs, copyop),
      _map(rhs._map),
      _ellipsoid(rhs._ellipsoid),
      _settings(std::make_unique<Settings>(*rhs._settings))
{
    setNumChildrenRequiringUpdateTraversal(1);
    if (!getStateSet())
        setUpStateSet();
}

TerrainEngine::~TerrainEngine()
{
    if (_builder)
        _builder->cancel();
}

void TerrainEngine::setUpStateSet()
{
    osg::StateSet* state = getOrCreateStateSet();
    // White material: the tile textures show their own colours wherever the
    // light (or the minimum ambient of the sky) is full.
    osg::ref_ptr<osg::Material> material = new osg::Material;
    material->setColorMode(osg::Material::OFF);
    material->setAmbient(osg::Material::FRONT_AND_BACK, osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    material->setDiffuse(osg::Material::FRONT_AND_BACK, osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    material->setSpecular(osg::Material::FRONT_AND_BACK, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
    material->setEmission(osg::Material::FRONT_AND_BACK, osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
    state->setAttributeAndModes(material.get(), osg::StateAttribute::ON);
    // Tiles and skirts face outwards; the far side of the globe is culled.
    state->setAttributeAndModes(new osg::CullFace(osg::CullFace::BACK), osg::StateAttribute::ON);
    // Lit and textured as the fixed-function pipeline would, with the haze
    // of the air when a sky is attached to the view.
    detail::applyTerrainProgram(*state, *_ellipsoid);
}

void TerrainEngine::setTileGridSize(unsigned int points)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _settings->values.tileGridSize = std::clamp(points, 2u, 129u);
}

unsigned int TerrainEngine::getTileGridSize() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _settings->values.tileGridSize;
}

void TerrainEngine::setImageSize(unsigned int pixels)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _settings->values.imageSize = std::clamp(pixels, 1u, 4096u);
}

unsigned int TerrainEngine::getImageSize() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _settings->values.imageSize;
}

void TerrainEngine::setMaxLevel(unsigned int level)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _settings->values.maxLevel = std::min(level, TileKey::MAX_LEVEL);
}

unsigned int TerrainEngine::getMaxLevel() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _settings->values.maxLevel;
}

void TerrainEngine::setRangeFactor(double factor)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _settings->values.rangeFactor = std::isfinite(factor) ? std::max(1.0, factor) : 6.0;
}

double TerrainEngine::getRangeFactor() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _settings->values.rangeFactor;
}

void TerrainEngine::setSkirtRatio(double ratio)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _settings->values.skirtRatio = std::isfinite(ratio) ? std::clamp(ratio, 0.0, 1.0) : 0.05;
}

double TerrainEngine::getSkirtRatio() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _settings->values.skirtRatio;
}

void TerrainEngine::setHorizonCulling(bool on)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _settings->values.horizonCulling = on;
}

bool TerrainEngine::getHorizonCulling() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _settings->values.horizonCulling;
}

bool TerrainEngine::sync()
{
    const unsigned int revision = _map->getRevision();
    const bool hasLayers = _map->getNumLayers() > 0;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_synced && revision == _syncedRevision && _settings->built == _settings->values)
            return false;

        // Requests still queued for the old tiles come to nothing.
        if (_builder)
        {
            _builder->cancel();
            _retiredTilesBuilt += _builder->getNumTilesBuilt();
        }
        _builder = nullptr;
        _root = nullptr;
        if (hasLayers)
        {
            _builder = new detail::TerrainTileBuilder(_map.get(), _ellipsoid.get(), _settings->values);
            _root = _builder->createRootNode();
        }
        _synced = true;
        _syncedRevision = revision;
        _settings->built = _settings->values;
    }
    dirtyBound();
    return true;
}

bool TerrainEngine::hasTerrain() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _root.valid();
}

osg::ref_ptr<detail::TerrainTileBuilder> TerrainEngine::builderForCurrentMap() const
{
    if (_map->getNumLayers() == 0)
        return nullptr;
    const unsigned int revision = _map->getRevision();
    std::lock_guard<std::mutex> lock(_mutex);
    if (_builder && _synced && revision == _syncedRevision && _settings->built == _settings->values)
        return _builder;
    return new detail::TerrainTileBuilder(_map.get(), _ellipsoid.get(), _settings->values);
}

osg::ref_ptr<osg::MatrixTransform> TerrainEngine::createTileModel(const TileKey& key) const
{
    osg::ref_ptr<detail::TerrainTileBuilder> builder = builderForCurrentMap();
    return builder ? builder->createTileModel(key) : nullptr;
}

double TerrainEngine::getSurfaceHeight(double lon, double lat, unsigned int* level) const
{
    osg::ref_ptr<detail::TerrainTileBuilder> builder = builderForCurrentMap();
    return builder ? builder->surfaceHeight(lon, lat, level) : 0.0;
}

osg::ref_ptr<osg::Node> TerrainEngine::createTileNode(const TileKey& key) const
{
    osg::ref_ptr<detail::TerrainTileBuilder> builder = builderForCurrentMap();
    return builder ? builder->createTileNode(key) : nullptr;
}

unsigned long TerrainEngine::getNumTilesBuilt() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _retiredTilesBuilt + (_builder ? _builder->getNumTilesBuilt() : 0);
}

void TerrainEngine::traverse(osg::NodeVisitor& nv)
{
    if (nv.getVisitorType() == osg::NodeVisitor::UPDATE_VISITOR)
        sync();
    if (_root)
        _root->accept(nv);
}

osg::BoundingSphere TerrainEngine::computeBound() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    if (!_root)
        return osg::BoundingSphere();
    // The whole globe, with room for the highest mountains.
    return osg::BoundingSphere(osg::Vec3d(), _ellipsoid->getRadiusEquator() + 10000.0);
}

} // namespace globe
