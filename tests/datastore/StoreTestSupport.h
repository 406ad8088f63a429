// What the object store tests share: whole-file bytes for "unchanged"
// checks, records filled from a few numbers, and a small store with two
// enterprises, a three-node tree and two objects with Chinese names.
#ifndef CXVIEWER_TESTS_STORETESTSUPPORT_H
#define CXVIEWER_TESTS_STORETESTSUPPORT_H

#include <datastore/DBAuthoring>
#include <datastore/DBManage>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace storetest
{

/** The bytes of a file; "<missing>" when there is none. */
inline std::string fileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "<missing>";
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline osg::ref_ptr<DBManage::EnterProperty> enterprise(int id, int type, const std::string& name, int root = 0)
{
    osg::ref_ptr<DBManage::EnterProperty> e = new DBManage::EnterProperty;
    e->enterID = id;
    e->enterType = type;
    e->enterName = name;
    e->rootQtnID = root;
    return e;
}

inline osg::ref_ptr<DBManage::ShowObjProperty> object(int id, int enterID, double lon, double lat, double radius = 1.0)
{
    osg::ref_ptr<DBManage::ShowObjProperty> o = new DBManage::ShowObjProperty;
    o->objID = id;
    o->enterID = enterID;
    o->objName = "object " + std::to_string(id);
    o->posX = lon;
    o->posY = lat;
    o->posZ = 10.0;
    o->radius = radius;
    return o;
}

inline osg::ref_ptr<DBManage::QuadTreeProperty> node(int id, int enterID, const std::string& centre, double width,
                                                     const std::string& children, const std::string& objects)
{
    osg::ref_ptr<DBManage::QuadTreeProperty> n = new DBManage::QuadTreeProperty;
    n->qtnID = id;
    n->enterID = enterID;
    n->centerText = centre;
    n->width = width;
    n->height = width / 2;
    n->lodRange = width * 222000.0;
    n->childIDs = children;
    n->objectIDs = objects;
    return n;
}

/** The property text of object 7 of the sample store. */
inline const char* sampleText()
{
    return "<模型 文件名=\"储罐_a.ive\">\n"
           "    <Pt3d x=\"0.000000\" y=\"0.000000\" z=\"0.000000\">平移</Pt3d>\n"
           "    <Pt3d x=\"10.000000\" y=\"0.000000\" z=\"0.000000\">角度姿态</Pt3d>\n"
           "    <Pt3d x=\"1.000000\" y=\"1.000000\" z=\"1.000000\">缩放</Pt3d>\n"
           "</模型>\n";
}

/**
 * Writes the sample store: enterprise 3 "燕山石化" (type 0, root 10) and
 * enterprise 5 "管网" (type 2, root 20, no such node); nodes 10 (children
 * "11,12", objects ",7,9"), 11 and 12; objects 7 "常减压装置" and 9 "储罐 9".
 */
inline void writeSampleStore(const std::string& path)
{
    DBManage::StoreWriter writer;
    ASSERT_TRUE(writer.create(path)) << writer.error();
    ASSERT_TRUE(writer.addEnterprise(*enterprise(5, 2, "管网", 20))) << writer.error();
    ASSERT_TRUE(writer.addEnterprise(*enterprise(3, 0, "燕山石化", 10))) << writer.error();
    ASSERT_TRUE(writer.addQuadTreeNode(*node(10, 3, "116.3,39.9,50", 0.5, "11,12", ",7,9"))) << writer.error();
    ASSERT_TRUE(writer.addQuadTreeNode(*node(11, 3, "116.175,39.9,0", 0.25, "", ""))) << writer.error();
    ASSERT_TRUE(writer.addQuadTreeNode(*node(12, 3, "116.425,39.9,0", 0.25, "", "9"))) << writer.error();

    osg::ref_ptr<DBManage::ShowObjProperty> a = object(7, 3, 116.391234567, 39.907654321, 35.5);
    a->objName = "常减压装置";
    a->visible = 0;
    a->propertyText = sampleText();
    a->reserved0 = 1.5;
    a->reserved1 = -2.25;
    a->reserved2 = 1e-300;
    a->posZ = 48.125;
    a->objType = 1;
    ASSERT_TRUE(writer.addObject(*a)) << writer.error();
    osg::ref_ptr<DBManage::ShowObjProperty> b = object(9, 3, 116.5, 39.95, 12.0);
    b->objName = "储罐 9";
    b->objType = 7;
    ASSERT_TRUE(writer.addObject(*b)) << writer.error();
    ASSERT_TRUE(writer.commit()) << writer.error();
}

} // namespace storetest

#endif
