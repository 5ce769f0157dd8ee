// Preloaded into a tool that shall draw on a frame buffer where there is none:
// a plain file of the right size then answers as the board's frame buffer does,
// 800 by 480 pixels of 32 bits, and holds the picture.
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace
{

const unsigned width = 800;
const unsigned height = 480;
const unsigned bytesPerPixel = 4;
const unsigned size = width * height * bytesPerPixel;

typedef int (*Control)(int, unsigned long, ...);

bool standsForTheScreen(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == size;
}

int describeMemory(fb_fix_screeninfo *info)
{
    std::memset(info, 0, sizeof *info);
    std::strcpy(info->id, "file");
    info->smem_len = size;
    info->line_length = width * bytesPerPixel;
    info->type = FB_TYPE_PACKED_PIXELS;
    info->visual = FB_VISUAL_TRUECOLOR;
    return 0;
}

int describePixels(fb_var_screeninfo *info)
{
    std::memset(info, 0, sizeof *info);
    info->xres = info->xres_virtual = width;
    info->yres = info->yres_virtual = height;
    info->bits_per_pixel = bytesPerPixel * 8;
    info->red = {16, 8, 0};
    info->green = {8, 8, 0};
    info->blue = {0, 8, 0};
    info->width = 152; // mm
    info->height = 91;
    return 0;
}

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list rest;
    va_start(rest, request);
    void *argument = va_arg(rest, void *);
    va_end(rest);

    if (request == FBIOGET_FSCREENINFO && standsForTheScreen(fd))
        return describeMemory(static_cast<fb_fix_screeninfo *>(argument));
    if (request == FBIOGET_VSCREENINFO && standsForTheScreen(fd))
        return describePixels(static_cast<fb_var_screeninfo *>(argument));
    static const Control real = reinterpret_cast<Control>(dlsym(RTLD_NEXT, "ioctl"));
    return real(fd, request, argument);
}
