// Tests of the scene objects without a GL context: a viewer object with the
// groups and the map node its scene set-up would make (set by hand, no
// window), a folder for model files, and object stores written by the tests
// with the authoring API and opened by the process's data manager.
#ifndef CXVIEWER_TESTS_OBJECTSTOREFIXTURE_H
#define CXVIEWER_TESTS_OBJECTSTOREFIXTURE_H

#include "TempDir.h"

#include <datastore/DBAuthoring>
#include <objects/CObjManager>
#include <objects/PropertyText>
#include <viewer/CXViewer>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace cxtest
{

class ObjectStoreFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        viewer = new CXViewer(0);
        viewer->root = new osg::Group;
        viewer->building = new osg::Group;
        viewer->terrain = new osg::Group;
        viewer->pipeGroup = new osg::Group;
        viewer->root->addChild(viewer->building.get());
        viewer->root->addChild(viewer->pipeGroup.get());
        viewer->mapNode = new globe::MapNode;
        viewer->modelRootPath = (dir.path() / "models").string() + "/";
        viewer->objManager = OBJManage::GetObjManager();
        storePath = (dir.path() / "objects.db").string();
    }

    void TearDown() override
    {
        OBJManage::GetObjManager()->Release();
        OBJManage::GetObjManager()->enterpriseMap.clear();
        OBJManage::GetObjManager()->enterIDMap.clear();
        OBJManage::GetObjManager()->ClearAllHideObjs();
        OBJManage::GetObjManager()->ClearHighLightObjList();
        OBJManage::GetObjManager()->ClearColorObjList();
        OBJManage::GetObjManager()->editList.clear();
        // Closes the store before the folder goes.
        DBManage::getDBManger()->ReadSQLiteDBFile((dir.path() / "none.db").string());
        viewer = nullptr;
    }

    /** Creates an empty model file below the model root. */
    void modelFile(const std::string& name) { dir.write("models/" + name, "model"); }

    /** The property text of a model file with an attitude and scale. */
    static std::string propertyText(const std::string& file, const osg::Vec3f& angle = osg::Vec3f(),
                                    const osg::Vec3f& scale = osg::Vec3f(1, 1, 1))
    {
        OBJManage::PropertyValues values;
        values.fileName = file;
        values.angle = angle;
        values.scale = scale;
        return OBJManage::writePropertyText(values);
    }

    static osg::ref_ptr<DBManage::ShowObjProperty> object(int id, int enterID, double lon, double lat,
                                                          double radius, const std::string& text)
    {
        osg::ref_ptr<DBManage::ShowObjProperty> o = new DBManage::ShowObjProperty;
        o->objID = id;
        o->enterID = enterID;
        o->objName = "object " + std::to_string(id);
        o->visible = 1;
        o->propertyText = text;
        o->radius = radius;
        o->posX = lon;
        o->posY = lat;
        o->posZ = 50.0;
        return o;
    }

    static osg::ref_ptr<DBManage::QuadTreeProperty> node(int id, const std::string& centre, double size,
                                                         const std::string& children,
                                                         const std::string& objects, double lodRange = 5000.0)
    {
        osg::ref_ptr<DBManage::QuadTreeProperty> n = new DBManage::QuadTreeProperty;
        n->qtnID = id;
        n->centerText = centre;
        n->width = size;
        n->height = size;
        n->lodRange = lodRange;
        n->childIDs = children;
        n->objectIDs = objects;
        return n;
    }

    static osg::ref_ptr<DBManage::EnterProperty> enterprise(int id, int type, int root)
    {
        osg::ref_ptr<DBManage::EnterProperty> e = new DBManage::EnterProperty;
        e->enterID = id;
        e->enterType = type;
        e->rootQtnID = root;
        e->enterName = "enterprise " + std::to_string(id);
        return e;
    }

    /** Writes the store with `fill` and opens it with the data manager. */
    void writeStore(const std::function<void(DBManage::StoreWriter&)>& fill)
    {
        DBManage::StoreWriter writer;
        ASSERT_TRUE(writer.create(storePath)) << writer.error();
        fill(writer);
        ASSERT_TRUE(writer.commit()) << writer.error();
        ASSERT_TRUE(DBManage::getDBManger()->ReadSQLiteDBFile(storePath));
        ASSERT_TRUE(DBManage::getDBManger()->ReadEnterProperty());
    }

    TempDir dir;
    osg::ref_ptr<CXViewer> viewer;
    std::string storePath;
};

} // namespace cxtest

#endif
