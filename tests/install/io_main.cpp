// Built against the installed package with COMPONENTS IO by
// scripts/check-install: writes an image file through IMB::IO and reads it.
#include <IMB/IMB.h>
#include <IMB/IMB_ImageIO.h>

#include <cstdio>
#include <string>

int main(int argc, char **argv)
{
    const std::string path = std::string(argc > 1 ? argv[1] : ".") + "/consumer.exr";
    IMB_Raster raster(PACK_RGBA, IMB_FLOAT16, 4, 2);
    const float blue[4] = {0.0f, 0.0f, 1.0f, 1.0f};
    raster.clearNormal(blue);
    IMB_Raster back;
    if (!IMB_ImageFile::write(path.c_str(), raster) || !IMB_ImageFile::read(path.c_str(), back))
        return 1;
    float px[4];
    back.getPixelValue(3, 1, px);
    std::printf("IO consumer: %s, %lldx%lld %s, pixel (3, 1) blue %g: %s\n", path.c_str(),
                static_cast<long long>(back.getXres()), static_cast<long long>(back.getYres()),
                IMBdataFormat(back.getFormat()), px[2], px[2] == 1.0f ? "ok" : "WRONG");
    return px[2] == 1.0f ? 0 : 1;
}
