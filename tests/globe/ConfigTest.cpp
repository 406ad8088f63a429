#include <globe/CachePolicy>
#include <globe/Config>
#include <globe/LayerOptions>
#include <globe/MBTilesOptions>

#include <gtest/gtest.h>

using globe::Config;
using globe::MBTilesOptions;

TEST(Config, SetReplacesAddAppendsRemoveDrops)
{
    Config conf("layer");
    conf.set("driver", "mbtiles");
    conf.set("driver", "other");
    EXPECT_EQ(conf.children().size(), 1u);
    EXPECT_EQ(conf.value("driver"), "other");
    conf.add("url", "a.db");
    conf.add("url", "b.db");
    EXPECT_EQ(conf.children().size(), 3u);
    EXPECT_EQ(conf.value("url"), "a.db");
    conf.remove("url");
    EXPECT_FALSE(conf.hasChild("url"));
    EXPECT_EQ(conf.value("url"), "");
    EXPECT_TRUE(conf.hasValue("driver"));
    conf.add("empty", "");
    EXPECT_TRUE(conf.hasChild("empty"));
    EXPECT_FALSE(conf.hasValue("empty"));
    EXPECT_TRUE(conf.child("missing").empty());
    EXPECT_EQ(conf.find("missing"), nullptr);
}

TEST(Config, TypedReadsLeaveTheTargetAloneOnFailure)
{
    Config conf;
    conf.add("yes", "YES");
    conf.add("off", " off ");
    conf.add("number", "42");
    conf.add("real", "2.5");
    conf.add("junk", "maybe");
    bool b = false;
    EXPECT_TRUE(conf.get("yes", b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(conf.get("off", b));
    EXPECT_FALSE(b);
    b = true;
    EXPECT_FALSE(conf.get("junk", b));
    EXPECT_TRUE(b);
    int i = 7;
    EXPECT_TRUE(conf.get("number", i));
    EXPECT_EQ(i, 42);
    EXPECT_FALSE(conf.get("real", i));
    EXPECT_EQ(i, 42);
    double d = 0.0;
    EXPECT_TRUE(conf.get("real", d));
    EXPECT_DOUBLE_EQ(d, 2.5);
    std::optional<bool> ob;
    EXPECT_FALSE(conf.get("missing", ob));
    EXPECT_FALSE(ob.has_value());
}

TEST(Config, ReferrerReachesChildren)
{
    Config conf("image");
    conf.add("url", "image.db");
    conf.setReferrer("/data/maps/world.earth");
    EXPECT_EQ(conf.find("url")->referrer(), "/data/maps/world.earth");
    conf.add("filename", "x.db");
    EXPECT_EQ(conf.find("filename")->referrer(), "/data/maps/world.earth");
}

TEST(MBTilesOptions, DefaultsAndKeys)
{
    const MBTilesOptions options;
    EXPECT_EQ(options.getDriver(), "");
    EXPECT_FALSE(options.filename().has_value());
    EXPECT_FALSE(options.format().has_value());
    EXPECT_FALSE(options.computeLevels().has_value());
    EXPECT_TRUE(options.getComputeLevels());
    EXPECT_FALSE(options.compress().has_value());

    Config conf;
    conf.set("driver", "mbtiles");
    conf.set("filename", "/maps/a.db");
    conf.set("format", "jpg");
    conf.set("compute_levels", "false");
    conf.set("compress", "true");
    conf.set("elevation_encoding", "terrarium");
    const MBTilesOptions read(conf);
    EXPECT_EQ(read.getDriver(), "mbtiles");
    EXPECT_EQ(read.getFilename(), "/maps/a.db");
    EXPECT_EQ(read.format().value_or(""), "jpg");
    EXPECT_FALSE(read.getComputeLevels());
    EXPECT_TRUE(read.compress().value_or(false));
    EXPECT_EQ(read.elevationEncoding().value_or(""), "terrarium");

    // Written back and read again, the options are the same.
    const MBTilesOptions again(read.getConfig());
    EXPECT_EQ(again.getDriver(), "mbtiles");
    EXPECT_EQ(again.getFilename(), "/maps/a.db");
    EXPECT_EQ(again.format().value_or(""), "jpg");
    EXPECT_FALSE(again.getComputeLevels());
    EXPECT_TRUE(again.compress().value_or(false));
    EXPECT_EQ(again.elevationEncoding().value_or(""), "terrarium");
}

TEST(MBTilesOptions, UrlIsReadAfterFilenameAndWins)
{
    Config conf;
    conf.add("url", "/maps/from-url.db");
    conf.add("filename", "/maps/from-filename.db");
    EXPECT_EQ(MBTilesOptions(conf).getFilename(), "/maps/from-url.db");

    Config onlyFilename;
    onlyFilename.add("filename", "/maps/only.db");
    EXPECT_EQ(MBTilesOptions(onlyFilename).getFilename(), "/maps/only.db");

    // The way the viewer sets its layers up: set the driver, drop any url,
    // add the new one, read into options that have their driver set.
    Config viewer;
    viewer.set("driver", "mbtiles");
    viewer.remove("url");
    viewer.add("url", "/base/data/base/image.db");
    MBTilesOptions options;
    options.setDriver("mbtiles");
    options.fromConfig(viewer);
    EXPECT_EQ(options.getDriver(), "mbtiles");
    EXPECT_EQ(options.getFilename(), "/base/data/base/image.db");
    EXPECT_TRUE(options.getComputeLevels());
}

TEST(MBTilesOptions, RelativePathsStartAtTheReferrersFolder)
{
    Config conf("image");
    conf.add("url", "../data/image.db");
    conf.setReferrer("/maps/earth/world.earth");
    EXPECT_EQ(MBTilesOptions(conf).getFilename(), "/maps/earth/../data/image.db");

    Config absolute("image");
    absolute.add("url", "/abs/image.db");
    absolute.setReferrer("/maps/earth/world.earth");
    EXPECT_EQ(MBTilesOptions(absolute).getFilename(), "/abs/image.db");

    Config fileUrl("image");
    fileUrl.add("url", "file:///abs/image.db");
    EXPECT_EQ(MBTilesOptions(fileUrl).getFilename(), "/abs/image.db");

    Config noReferrer("image");
    noReferrer.add("url", "image.db");
    EXPECT_EQ(MBTilesOptions(noReferrer).getFilename(), "image.db");
}

TEST(LayerOptions, NoCacheIsTheOnlyPolicy)
{
    globe::LayerOptions options("baseImage", MBTilesOptions());
    EXPECT_EQ(options.name(), "baseImage");
    EXPECT_EQ(options.cachePolicy(), globe::CachePolicy::NO_CACHE);
    options.cachePolicy() = globe::CachePolicy::NO_CACHE;
    EXPECT_TRUE(options.cachePolicy().isCacheDisabled());
    EXPECT_EQ(options.cachePolicy().usage(), globe::CachePolicy::USAGE_NO_CACHE);
}
