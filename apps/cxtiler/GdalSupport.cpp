#include "GdalSupport.h"

#include "Error.h"

#include <cpl_error.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <vector>

namespace fs = std::filesystem;

namespace cxtiler
{

void registerGdal()
{
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

GdalErrorTrap::GdalErrorTrap()
{
    registerGdal();
    CPLPushErrorHandlerEx(&GdalErrorTrap::handler, this);
}

GdalErrorTrap::~GdalErrorTrap() { CPLPopErrorHandler(); }

void GdalErrorTrap::handler(CPLErr level, CPLErrorNum, const char* message)
{
    auto* trap = static_cast<GdalErrorTrap*>(CPLGetErrorHandlerUserData());
    if (!trap || level < CE_Failure || !message)
        return; // warnings and debug output: the tool reports what matters itself
    // The first error of a failure names its cause ("Read error on strip 7"); the
    // ones after it only repeat that something above failed.
    if (trap->_lastError.empty())
        trap->_lastError = message;
}

std::string GdalErrorTrap::reason(const std::string& fallback) const
{
    return _lastError.empty() ? fallback : _lastError;
}

DatasetPtr openRaster(const std::string& path)
{
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (!fs::exists(status))
        throw Error("cannot read '" + path + "': no such file");
    if (fs::is_directory(status))
        throw Error("cannot read '" + path + "': it is a folder, not an image");

    GdalErrorTrap trap;
    DatasetPtr dataset(GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR, nullptr,
                                  nullptr, nullptr));
    if (!dataset)
        throw Error("cannot read '" + path + "': not an image or raster GDAL can read ("
                    + trap.reason("no driver recognises it") + ")");
    GDALDatasetH ds = dataset.get();
    if (GDALGetRasterCount(ds) < 1 || GDALGetRasterXSize(ds) < 1 || GDALGetRasterYSize(ds) < 1)
        throw Error("cannot read '" + path + "': not an image: it holds no raster band");
    return dataset;
}

bool hasGeoreferencing(GDALDatasetH dataset)
{
    double transform[6];
    if (GDALGetGeoTransform(dataset, transform) == CE_None)
    {
        // GDAL reports success with its default transform for some formats.
        const double identity[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
        if (!std::equal(transform, transform + 6, identity))
            return true;
    }
    return GDALGetGCPCount(dataset) >= 3;
}

void probeReadable(GDALDatasetH dataset, const std::string& path)
{
    GdalErrorTrap trap;
    const int count = GDALGetRasterCount(dataset);
    const int width = GDALGetRasterXSize(dataset);
    const int height = GDALGetRasterYSize(dataset);
    for (int bandIndex : {1, count})
    {
        GDALRasterBandH band = GDALGetRasterBand(dataset, bandIndex);
        int blockWidth = 0;
        int blockHeight = 0;
        GDALGetBlockSize(band, &blockWidth, &blockHeight);
        blockWidth = std::clamp(blockWidth, 1, width);
        blockHeight = std::clamp(blockHeight, 1, height);
        std::vector<double> buffer(static_cast<std::size_t>(blockWidth) * blockHeight);
        const int lastX = (width - 1) / blockWidth * blockWidth;
        const int lastY = (height - 1) / blockHeight * blockHeight;
        for (const auto& [x, y] : {std::pair{0, 0}, std::pair{lastX, lastY}})
        {
            const int w = std::min(blockWidth, width - x);
            const int h = std::min(blockHeight, height - y);
            if (GDALRasterIO(band, GF_Read, x, y, w, h, buffer.data(), w, h, GDT_Float64, 0, 0) != CE_None)
                throw Error("cannot read '" + path + "': " + trap.reason("reading its pixels failed")
                            + " (the file may be cut short or damaged)");
        }
    }
}

} // namespace cxtiler
