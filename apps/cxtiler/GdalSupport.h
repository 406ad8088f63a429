// What every part of the tiler that reads rasters through GDAL shares: the driver
// registration, datasets that close themselves, GDAL's error messages caught for
// the tool's own reports, and the checked opening of an input file.
#ifndef CXTILER_GDALSUPPORT_H
#define CXTILER_GDALSUPPORT_H

#include <cpl_error.h>
#include <gdal.h>

#include <memory>
#include <string>
#include <vector>

namespace cxtiler
{

/** Registers GDAL's drivers, once per process. */
void registerGdal();

struct DatasetCloser
{
    void operator()(void* dataset) const
    {
        if (dataset)
            GDALClose(static_cast<GDALDatasetH>(dataset));
    }
};

/** A GDAL dataset closed when the pointer goes away. */
using DatasetPtr = std::unique_ptr<void, DatasetCloser>;

/**
 * While alive, GDAL's errors and warnings are collected here instead of being
 * printed, so that the tool reports a failure once, in its own words, quoting
 * GDAL's reason. Traps nest: the innermost one collects.
 */
class GdalErrorTrap
{
public:
    GdalErrorTrap();
    ~GdalErrorTrap();
    GdalErrorTrap(const GdalErrorTrap&) = delete;
    GdalErrorTrap& operator=(const GdalErrorTrap&) = delete;

    /** The last error (not warning) GDAL reported since the trap was set or cleared. */
    const std::string& lastError() const { return _lastError; }
    /** lastError(), or `fallback` when GDAL gave none. */
    std::string reason(const std::string& fallback) const;
    void clear() { _lastError.clear(); }

private:
    static void CPL_STDCALL handler(CPLErr level, CPLErrorNum number, const char* message);

    std::string _lastError;
};

/**
 * Opens `path` as a raster for reading. Throws Error "cannot read 'path': ..."
 * for a missing file, a folder, or a file that no GDAL driver reads as a raster.
 */
DatasetPtr openRaster(const std::string& path);

/** True when the dataset places its pixels on the Earth: an affine geotransform
 *  (from the file, a world file or a side-car) or ground control points. */
bool hasGeoreferencing(GDALDatasetH dataset);

/**
 * Reads the first and the last block of the dataset's first and last band, so
 * that a file cut short is found before any output is written. Throws Error
 * "cannot read 'path': ..." when a read fails.
 */
void probeReadable(GDALDatasetH dataset, const std::string& path);

} // namespace cxtiler

#endif
