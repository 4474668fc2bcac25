// Built against the installed package by scripts/check-install.
#include <IMB/IMB.h>

#include <cstdio>

int main()
{
    IMB_Raster raster(PACK_RGBA, IMB_FLOAT32, 4, 2);
    const float red[4] = {1.0f, 0.0f, 0.0f, 1.0f};
    raster.clearNormal(red);
    float px[4];
    raster.getPixelValue(3, 1, px);
    if (px[0] != 1.0f || px[3] != 1.0f)
    {
        std::fprintf(stderr, "consumer: unexpected pixel %g %g %g %g\n", px[0], px[1], px[2], px[3]);
        return 1;
    }
    std::printf("consumer: %s %s raster %lldx%lld, stride %lld: ok\n", IMBpacking(raster.getPacking()),
                IMBdataFormat(raster.getFormat()), static_cast<long long>(raster.getXres()),
                static_cast<long long>(raster.getYres()), static_cast<long long>(raster.getStride()));
    return 0;
}
