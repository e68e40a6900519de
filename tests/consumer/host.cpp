#include <vornfilehandler.h>

#include <QFile>
#include <QJsonDocument>

#include <cstdio>

using namespace VORN_FILE_HANDLER;

int main()
{
    VornFileHandler::init("CAM", "media/mmc/DCIM", "mmcblk0p1", "media/sd/DCIM", "mmcblk1p1",
                          "media/usb/DCIM", "sda1");

    const QByteArray picture("a photo");
    QFile photo(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG));
    if (!photo.open(QIODevice::WriteOnly | QIODevice::NewOnly) || photo.write(picture) != picture.size()
        || !photo.flush())
        return 1;

    const QJsonArray photos = VornFileHandler::getJSONImageList(STORAGE_SD, false);
    std::fputs(QJsonDocument(photos).toJson().constData(), stdout);
    return 0;
}
