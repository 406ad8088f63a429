// The model object: its files and distance tiers, placement, visibility,
// highlight and colour, editing and saving.
#include "ObjectStoreFixture.h"

#include <objects/CNCObj>

#include <osg/Material>
#include <osg/PagedLOD>
#include <osgViewer/View>

#include <cmath>

using OBJManage::CModel;

namespace
{

osg::PagedLOD* pagedNodeOf(CModel& model)
{
    const globe::ModelSymbol* symbol = model.getStyle().getModelSymbol();
    return symbol ? dynamic_cast<osg::PagedLOD*>(symbol->getModel()) : nullptr;
}

struct Entry
{
    std::string file;
    float from, to;
};

std::vector<Entry> entriesOf(const osg::PagedLOD& plod)
{
    std::vector<Entry> entries;
    for (unsigned int i = 0; i < plod.getNumFileNames(); ++i)
        entries.push_back({plod.getFileName(i), plod.getMinRange(i), plod.getMaxRange(i)});
    return entries;
}

} // namespace

class Model : public cxtest::ObjectStoreFixture
{
protected:
    osg::ref_ptr<CModel> make(const std::string& file, double radius, int objType = 2, int id = 11)
    {
        osg::ref_ptr<DBManage::ShowObjProperty> record = object(id, 1, 116.39, 39.91, radius, propertyText(file));
        record->objType = objType;
        osg::ref_ptr<CModel> model = new CModel(viewer->mapNode.get(), globe::Style());
        lastInit = model->Init(record.get());
        return model;
    }

    std::string root() const { return viewer->modelRootPath; }

    bool lastInit = false;
};

TEST_F(Model, FileWithoutTheWordCrudeGivesOneEntry)
{
    modelFile("tower.osgb");
    osg::ref_ptr<CModel> model = make("tower.osgb", 30.0);
    ASSERT_TRUE(lastInit);
    osg::PagedLOD* plod = pagedNodeOf(*model);
    ASSERT_NE(plod, nullptr);
    ASSERT_EQ(plod->getNumFileNames(), 1u);
    EXPECT_EQ(plod->getFileName(0), root() + "tower.osgb");
    // A big object (radius over 15): [0, lessSixtyCrude].
    EXPECT_FLOAT_EQ(plod->getMaxRange(0), viewer->lessSixtyCrude);
    EXPECT_EQ(model->fileName, "tower.osgb");
}

TEST_F(Model, RadiusOfExactlyFifteenTakesTheSmallEntriesOfTheSecondTier)
{
    modelFile("a_crude.osgb");
    viewer->lessSixtyCrude = 2500.0f;
    osg::ref_ptr<CModel> model = make("a_crude.osgb", 15.0);
    ASSERT_TRUE(lastInit);
    osg::PagedLOD* plod = pagedNodeOf(*model);
    ASSERT_NE(plod, nullptr);
    ASSERT_EQ(plod->getNumFileNames(), 1u);
    EXPECT_FLOAT_EQ(plod->getMinRange(0), 0.0f);
    EXPECT_FLOAT_EQ(plod->getMaxRange(0), 1000.0f) << "small: [0, 1000], not the tier's crude distance";
    // Just over 15 the tier's distance counts.
    osg::ref_ptr<CModel> bigger = make("a_crude.osgb", 15.5);
    EXPECT_FLOAT_EQ(pagedNodeOf(*bigger)->getMaxRange(0), 2500.0f);
}

TEST_F(Model, AllFourFilesOfABigObjectGiveFourEntries)
{
    for (const char* form : {"crude", "fine", "middle", "crude2"})
        modelFile(std::string("b_") + form + ".osgb");
    osg::ref_ptr<CModel> model = make("b_crude.osgb", 100.0);
    ASSERT_TRUE(lastInit);
    const std::vector<Entry> e = entriesOf(*pagedNodeOf(*model));
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[0].file, root() + "b_crude2.osgb");
    EXPECT_FLOAT_EQ(e[0].from, 2000.0f);
    EXPECT_FLOAT_EQ(e[0].to, 4000.0f);
    EXPECT_EQ(e[1].file, root() + "b_crude.osgb");
    EXPECT_FLOAT_EQ(e[1].from, 1500.0f);
    EXPECT_FLOAT_EQ(e[1].to, 2000.0f);
    EXPECT_EQ(e[2].file, root() + "b_middle.osgb");
    EXPECT_FLOAT_EQ(e[2].from, 500.0f);
    EXPECT_FLOAT_EQ(e[2].to, 1500.0f);
    EXPECT_EQ(e[3].file, root() + "b_fine.osgb");
    EXPECT_FLOAT_EQ(e[3].from, 0.0f);
    EXPECT_FLOAT_EQ(e[3].to, 500.0f);
    // The cull callback carries the object's values.
    auto* callback = dynamic_cast<OBJManage::CNCObj*>(pagedNodeOf(*model)->getCullCallback());
    ASSERT_NE(callback, nullptr);
    EXPECT_DOUBLE_EQ(callback->radius, 100.0);
    EXPECT_EQ(callback->enterID, 1);
    EXPECT_EQ(callback->pos, osg::Vec3d(116.39, 39.91, 50.0));
    osg::ref_ptr<OBJManage::CNCObj> copy = new OBJManage::CNCObj(*callback);
    EXPECT_EQ(copy->pos, osg::Vec3d(0, 0, 0)) << "a copy takes over none of the values";
}

TEST_F(Model, CloseTierValuesDropTheEntryBetweenThem)
{
    for (const char* form : {"crude", "fine", "middle"})
        modelFile(std::string("c_") + form + ".osgb");
    viewer->otherMiddle = 1500.0f;
    viewer->otherCrude = 1501.0f; // a difference of exactly 1: no gap
    osg::ref_ptr<CModel> model = make("c_crude.osgb", 100.0);
    const std::vector<Entry> e = entriesOf(*pagedNodeOf(*model));
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].file, root() + "c_middle.osgb");
    EXPECT_EQ(e[1].file, root() + "c_fine.osgb");
    // The crude2 file counts only with the other three: here it is absent.
}

TEST_F(Model, EntriesOfTheOtherCombinationsOfFiles)
{
    // Fine and crude, no middle: crude [dFine, dCrude], fine [0, dFine].
    modelFile("d_crude.osgb");
    modelFile("d_fine.osgb");
    std::vector<Entry> e = entriesOf(*pagedNodeOf(*make("d_crude.osgb", 100.0)));
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].file, root() + "d_crude.osgb");
    EXPECT_FLOAT_EQ(e[0].from, 500.0f);
    EXPECT_FLOAT_EQ(e[0].to, 2000.0f);

    // Fine and middle, no crude: the crude2 file does not count.
    modelFile("e_fine.osgb");
    modelFile("e_middle.osgb");
    modelFile("e_crude2.osgb");
    e = entriesOf(*pagedNodeOf(*make("e_crude.osgb", 100.0)));
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].file, root() + "e_middle.osgb");
    EXPECT_FLOAT_EQ(e[0].from, 500.0f);
    EXPECT_FLOAT_EQ(e[0].to, 1500.0f);

    // Middle and crude, no fine, big: crude [dMiddle, dCrude], middle [0, dMiddle].
    modelFile("f_middle.osgb");
    modelFile("f_crude.osgb");
    osg::ref_ptr<CModel> big = make("f_crude.osgb", 100.0);
    e = entriesOf(*pagedNodeOf(*big));
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[1].file, root() + "f_middle.osgb");
    EXPECT_FLOAT_EQ(e[1].to, 1500.0f);
    EXPECT_NE(pagedNodeOf(*big)->getCullCallback(), nullptr);
    // The same small: no entry at all (the small tier has no middle
    // distance), no cull callback, and still a model.
    osg::ref_ptr<CModel> small = make("f_crude.osgb", 10.0);
    EXPECT_TRUE(lastInit);
    EXPECT_EQ(pagedNodeOf(*small)->getNumFileNames(), 0u);
    EXPECT_EQ(pagedNodeOf(*small)->getCullCallback(), nullptr);

    // Middle only, small: [0, 1000].
    modelFile("g_middle.osgb");
    e = entriesOf(*pagedNodeOf(*make("g_crude.osgb", 5.0)));
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].file, root() + "g_middle.osgb");
    EXPECT_FLOAT_EQ(e[0].to, 1000.0f);

    // Fine only, big: [0, dFine].
    modelFile("h_fine.osgb");
    e = entriesOf(*pagedNodeOf(*make("h_crude.osgb", 70.0)));
    ASSERT_EQ(e.size(), 1u);
    EXPECT_FLOAT_EQ(e[0].to, 500.0f);
}

TEST_F(Model, TypesChoosePriorityOptionsAndTheTerrainCrudeDistance)
{
    for (const char* form : {"crude", "fine", "middle"})
        modelFile(std::string("t_") + form + ".osgb");
    osg::ref_ptr<CModel> building = make("t_crude.osgb", 100.0, 0);
    osg::PagedLOD* b = pagedNodeOf(*building);
    EXPECT_EQ(b->getDatabaseOptions(), viewer->readOptions.get());
    EXPECT_FLOAT_EQ(b->getPriorityOffset(0), 0.1f);
    osg::ref_ptr<CModel> terrain = make("t_crude.osgb", 100.0, 1);
    osg::PagedLOD* t = pagedNodeOf(*terrain);
    EXPECT_EQ(t->getDatabaseOptions(), nullptr);
    EXPECT_FLOAT_EQ(t->getPriorityOffset(0), 0.2f);
    EXPECT_FLOAT_EQ(t->getMaxRange(0), 6000.0f) << "the crude distance of a terrain model";
    osg::ref_ptr<CModel> pipe = make("t_crude.osgb", 100.0, 2);
    EXPECT_FLOAT_EQ(pagedNodeOf(*pipe)->getPriorityOffset(0), 0.0f);
    EXPECT_FLOAT_EQ(pagedNodeOf(*pipe)->getMaxRange(0), 2000.0f);
}

TEST_F(Model, WithoutUsableTextOrFilesInitFailsKeepingWhatItCopied)
{
    osg::ref_ptr<CModel> model = new CModel(viewer->mapNode.get(), globe::Style());
    EXPECT_FALSE(model->Init(nullptr));
    osg::ref_ptr<DBManage::ShowObjProperty> record = object(-42, 3, 116.5, 39.8, 20.0, "");
    EXPECT_FALSE(model->Init(record.get()));
    EXPECT_EQ(model->objID, -42) << "sign-extended";
    EXPECT_EQ(model->GetPos(), osg::Vec3d(116.5, 39.8, 50.0));
    EXPECT_EQ(model->getModelName(), "object -42");
    EXPECT_EQ(model->getName(), "object -42");
    // No root element, no file name attribute, no file.
    record->propertyText = "just text";
    EXPECT_FALSE(model->Init(record.get()));
    record->propertyText = "<模型 名=\"x\"/>";
    EXPECT_FALSE(model->Init(record.get()));
    record->propertyText = propertyText("missing_crude.osgb");
    EXPECT_FALSE(model->Init(record.get()));
    EXPECT_EQ(pagedNodeOf(*model), nullptr);
}

TEST_F(Model, PlacedAtItsPositionWithItsAttitudeAndScale)
{
    modelFile("p_crude.osgb");
    osg::ref_ptr<DBManage::ShowObjProperty> record =
        object(5, 1, 116.39, 39.91, 30.0, propertyText("p_crude.osgb", osg::Vec3f(30, 0, 0), osg::Vec3f(2, 2, 3)));
    record->visible = 0;
    osg::ref_ptr<CModel> model = new CModel(viewer->mapNode.get(), globe::Style());
    ASSERT_TRUE(model->Init(record.get()));
    EXPECT_EQ(model->getNodeMask(), 0xffu) << "visible at creation whatever the stored wish";
    EXPECT_FALSE(model->visible);
    EXPECT_EQ(model->Getangle(), osg::Vec3d(30, 0, 0));
    EXPECT_EQ(model->GetScale(), osg::Vec3d(2, 2, 3));
    const globe::ModelSymbol* symbol = model->getStyle().getModelSymbol();
    ASSERT_NE(symbol, nullptr);
    EXPECT_DOUBLE_EQ(symbol->heading(), 30.0);
    EXPECT_DOUBLE_EQ(symbol->scaleZ(), 3.0);
    EXPECT_EQ(model->getPosition(), osg::Vec3d(116.39, 39.91, 50.0));
    // The transform takes the model's origin to the position on the globe.
    osg::Vec3d expected;
    viewer->mapNode->getEllipsoidModel()->convertLatLongHeightToXYZ(osg::DegreesToRadians(39.91),
                                                                    osg::DegreesToRadians(116.39), 50.0,
                                                                    expected.x(), expected.y(), expected.z());
    EXPECT_LT((model->getTransform()->getMatrix().getTrans() - expected).length(), 1e-3);
    EXPECT_EQ(model->getTransform()->getChild(0), pagedNodeOf(*model));
}

TEST_F(Model, VisibilityActsOnlyOnAChange)
{
    modelFile("v_crude.osgb");
    osg::ref_ptr<CModel> model = make("v_crude.osgb", 30.0);
    model->setNodeMask(0x1);
    model->SetObjVisible(true); // the wish is already true: nothing
    EXPECT_EQ(model->getNodeMask(), 0x1u);
    model->SetObjVisible(false);
    EXPECT_EQ(model->getNodeMask(), 0u);
    model->setNodeMask(0x5);
    model->SetObjVisible(false);
    EXPECT_EQ(model->getNodeMask(), 0x5u);
    model->SetObjVisible(true);
    EXPECT_EQ(model->getNodeMask(), 0xffu);
}

TEST_F(Model, HighlightGivesWayToTheColourOfTheList)
{
    modelFile("h_crude.osgb");
    osg::ref_ptr<CModel> coloured = make("h_crude.osgb", 30.0, 0, 21);
    osg::ref_ptr<CModel> plain = make("h_crude.osgb", 30.0, 0, 22);
    auto material = [](CModel& m) {
        return m.getStateSet() ? m.getStateSet()->getAttribute(osg::StateAttribute::MATERIAL) : nullptr;
    };
    auto lighting = [](CModel& m) {
        return m.getStateSet() ? m.getStateSet()->getMode(GL_LIGHTING)
                               : static_cast<osg::StateAttribute::GLModeValue>(osg::StateAttribute::INHERIT);
    };

    OBJManage::GetObjManager()->AddColorObj(21);
    coloured->SetModelColor(1);
    EXPECT_EQ(material(*coloured), CModel::colorMaterial());
    coloured->SetModelHighLight(true);
    EXPECT_EQ(material(*coloured), CModel::highlightMaterial());
    coloured->SetModelHighLight(false);
    EXPECT_EQ(material(*coloured), CModel::colorMaterial()) << "the colour comes back";
    // Taking the highlight off with the colour value leaves the colour.
    coloured->SetModelColor(0);
    EXPECT_EQ(material(*coloured), CModel::colorMaterial());
    EXPECT_EQ(lighting(*coloured), osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    coloured->SetModelColor(7); // nothing
    EXPECT_EQ(material(*coloured), CModel::colorMaterial());

    plain->SetModelHighLight(true);
    EXPECT_EQ(material(*plain), CModel::highlightMaterial());
    const osg::StateSet::RefAttributePair* pair = plain->getStateSet()->getAttributePair(osg::StateAttribute::MATERIAL);
    ASSERT_NE(pair, nullptr);
    EXPECT_TRUE(pair->second & osg::StateAttribute::OVERRIDE) << "over the materials of the model's own files";
    plain->SetModelHighLight(false);
    EXPECT_EQ(material(*plain), nullptr) << "plain again";
    EXPECT_EQ(lighting(*plain), osg::StateAttribute::INHERIT);

    // The shared materials: yellow and red on both faces.
    EXPECT_EQ(CModel::highlightMaterial()->getDiffuse(osg::Material::FRONT), osg::Vec4(1, 1, 0, 1));
    EXPECT_EQ(CModel::highlightMaterial()->getDiffuse(osg::Material::BACK), osg::Vec4(1, 1, 0, 1));
    EXPECT_EQ(CModel::colorMaterial()->getDiffuse(osg::Material::FRONT), osg::Vec4(1, 0, 0, 1));
}

TEST_F(Model, EditsMoveTheNodeAndSaveRoundTripsThroughTheStore)
{
    modelFile("m_crude.osgb");
    osg::ref_ptr<DBManage::ShowObjProperty> record =
        object(31, 1, 116.39, 39.91, 30.0, propertyText("m_crude.osgb", osg::Vec3f(10, 0, 0)));
    writeStore([&](DBManage::StoreWriter& w) {
        ASSERT_TRUE(w.addEnterprise(*enterprise(1, 0, 0)));
        ASSERT_TRUE(w.addObject(*record));
    });
    osg::ref_ptr<CModel> model = new CModel(viewer->mapNode.get(), globe::Style());
    ASSERT_TRUE(model->Init(record.get()));
    model->setQtnID(77);

    OBJManage::modeData edit;
    edit.objID = 999; // not looked at
    edit.pos.set(116.40, 39.92, 60.0);
    edit.angle.set(12.345678, 1.5, -2.25);
    edit.scale.set(1.5, 2.0, 2.5);
    model->SetModelData(edit);
    EXPECT_EQ(model->getModelName(), "object 31");
    EXPECT_EQ(model->getQtnID(), 77);
    EXPECT_EQ(model->objID, 31);
    EXPECT_EQ(model->getPosition(), osg::Vec3d(116.40, 39.92, 60.0));
    EXPECT_DOUBLE_EQ(model->getStyle().getModelSymbol()->heading(), static_cast<float>(12.345678));
    EXPECT_NE(pagedNodeOf(*model), nullptr) << "the symbol keeps the paged node";

    ASSERT_TRUE(model->SaveAdjustmentModel());
    osg::ref_ptr<DBManage::ShowObjProperty> saved = DBManage::getDBManger()->ShowObjQueryInfo(31);
    ASSERT_TRUE(saved.valid());
    EXPECT_DOUBLE_EQ(saved->posX, 116.40);
    EXPECT_DOUBLE_EQ(saved->posZ, 60.0);
    EXPECT_EQ(saved->objName, "object 31");
    EXPECT_EQ(saved->reserved0, 0.0);

    // The text written and read back: the same file, attitude and scale to
    // six decimals.
    osg::ref_ptr<CModel> again = new CModel(viewer->mapNode.get(), globe::Style());
    ASSERT_TRUE(again->Init(saved.get()));
    EXPECT_EQ(again->fileName, "m_crude.osgb");
    for (int k = 0; k < 3; ++k)
    {
        EXPECT_NEAR(again->angle[k], model->angle[k], 1e-6);
        EXPECT_NEAR(again->scale[k], model->scale[k], 1e-6);
    }
    EXPECT_EQ(saved->propertyText,
              "<模型 文件名=\"m_crude.osgb\">\n"
              "    <Pt3d x=\"0.000000\" y=\"0.000000\" z=\"0.000000\">平移</Pt3d>\n"
              "    <Pt3d x=\"12.345678\" y=\"1.500000\" z=\"-2.250000\">角度姿态</Pt3d>\n"
              "    <Pt3d x=\"1.500000\" y=\"2.000000\" z=\"2.500000\">缩放</Pt3d>\n"
              "</模型>\n");

    // An object without a row: the update is refused, the model stays.
    model->objID = 12345;
    EXPECT_FALSE(model->SaveAdjustmentModel());
}

TEST_F(Model, UpdateLodComparesEyeAndPositionAsTheyStand)
{
    modelFile("u_crude.osgb");
    osg::ref_ptr<CModel> model = make("u_crude.osgb", 30.0);
    // Without a view the object always deserves detail.
    EXPECT_TRUE(model->updateLod());

    // A view whose eye stands at a given point; the object's position is
    // (116.39, 39.91, 50), compared with the eye as it stands.
    viewer->mainView = new osgViewer::View;
    auto eyeAt = [&](double x, double y, double z) {
        viewer->mainView->getCamera()->setViewMatrixAsLookAt(osg::Vec3d(x, y, z), osg::Vec3d(x, y + 1, z),
                                                             osg::Vec3d(0, 0, 1));
    };
    const double x = 116.39, y = 39.91;
    eyeAt(x + 1600.0, y, 60.0); // 1,600 away, 10 up: flat and far
    EXPECT_FALSE(model->updateLod());
    eyeAt(x + 1600.0, y, 120.0); // 70 up: only the 2,000 m rule could apply
    EXPECT_TRUE(model->updateLod());
    eyeAt(x + 2100.0, y, 120.0); // 2,100 away, 70 up
    EXPECT_FALSE(model->updateLod());
    eyeAt(x + 1000.0, y, 55.0); // near
    EXPECT_TRUE(model->updateLod());
    model->radius = 1000.0; // large objects always deserve detail
    eyeAt(x + 2100.0, y, 60.0);
    EXPECT_TRUE(model->updateLod());

    // A terrain enterprise: only beyond 3,000 m and within 50 m of height.
    model->radius = 30.0;
    OBJManage::GetObjManager()->enterIDMap[1] = 1;
    eyeAt(x + 2100.0, y, 60.0);
    EXPECT_TRUE(model->updateLod());
    eyeAt(x + 3100.0, y, 60.0);
    EXPECT_FALSE(model->updateLod());
    eyeAt(x + 3100.0, y, 120.0);
    EXPECT_TRUE(model->updateLod());
    // The eye on the position itself.
    OBJManage::GetObjManager()->enterIDMap.erase(1);
    eyeAt(x, y, 50.0);
    EXPECT_TRUE(model->updateLod());
}
