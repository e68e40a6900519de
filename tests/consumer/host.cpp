#include <vornfilehandler.h>

#include <QFile>
#include <QJsonDocument>

#include <cstdio>

using namespace VORN_FILE_HANDLER;

int main()
{
    VornFileHandler::init("CAM", "media/mmc/DCIM", "mmcblk0p1", "media/sd/DCIM", "mmcblk1p1",
                          "media/usb/DCIM", "sda1");

    QFile photo(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG));
    if (!photo.open(QIODevice::WriteOnly) || photo.write("a photo") < 0)
        return 1;
    photo.close();

    const QJsonArray photos = VornFileHandler::getJSONImageList(STORAGE_SD, false);
    std::fputs(QJsonDocument(photos).toJson().constData(), stdout);
    return 0;
}
