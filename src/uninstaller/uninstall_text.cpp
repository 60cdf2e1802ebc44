#include "uninstall_text.h"

#include <windows.h>

const Text &uninstallerText()
{
    static const Text english {
        L"Brisa-Linker Uninstall",
        L"Remove Brisa-Linker from this computer? Files you added to its folder are kept.",
        L"Brisa-Linker was removed from this computer.",
        L"Brisa-Linker was removed, but some files could not be deleted. Close Brisa-Linker and run the uninstaller again.",
        L"This folder does not hold a Brisa-Linker installation that can be removed.",
    };
    static const Text russian {
        L"\x0423\x0434\x0430\x043B\x0435\x043D\x0438\x0435 Brisa-Linker",
        L"\x0423\x0434\x0430\x043B\x0438\x0442\x044C Brisa-Linker \x0441 \x044D\x0442\x043E\x0433\x043E \x043A\x043E\x043C\x043F\x044C\x044E\x0442\x0435\x0440\x0430? "
        L"\x0414\x043E\x0431\x0430\x0432\x043B\x0435\x043D\x043D\x044B\x0435 \x0432\x0430\x043C\x0438 \x0444\x0430\x0439\x043B\x044B \x0441\x043E\x0445\x0440\x0430\x043D\x044F\x0442\x0441\x044F.",
        L"Brisa-Linker \x0443\x0434\x0430\x043B\x0451\x043D \x0441 \x044D\x0442\x043E\x0433\x043E \x043A\x043E\x043C\x043F\x044C\x044E\x0442\x0435\x0440\x0430.",
        L"Brisa-Linker \x0443\x0434\x0430\x043B\x0451\x043D, \x043D\x043E \x043D\x0435\x043A\x043E\x0442\x043E\x0440\x044B\x0435 \x0444\x0430\x0439\x043B\x044B \x043D\x0435 \x0443\x0434\x0430\x043B\x043E\x0441\x044C \x0443\x0434\x0430\x043B\x0438\x0442\x044C. "
        L"\x0417\x0430\x043A\x0440\x043E\x0439\x0442\x0435 Brisa-Linker \x0438 \x0437\x0430\x043F\x0443\x0441\x0442\x0438\x0442\x0435 \x0443\x0434\x0430\x043B\x0435\x043D\x0438\x0435 \x0441\x043D\x043E\x0432\x0430.",
        L"\x0412 \x044D\x0442\x043E\x0439 \x043F\x0430\x043F\x043A\x0435 \x043D\x0435\x0442 \x0443\x0441\x0442\x0430\x043D\x043E\x0432\x043A\x0438 Brisa-Linker, \x043A\x043E\x0442\x043E\x0440\x0443\x044E \x043C\x043E\x0436\x043D\x043E \x0443\x0434\x0430\x043B\x0438\x0442\x044C.",
    };
    static const Text spanish {
        L"Desinstalar Brisa-Linker",
        L"\x00BFQuitar Brisa-Linker de este equipo? Los archivos que haya a\x00F1adido a su carpeta se conservan.",
        L"Brisa-Linker se ha quitado de este equipo.",
        L"Brisa-Linker se ha quitado, pero algunos archivos no se pudieron eliminar. Cierre Brisa-Linker y vuelva a ejecutar el desinstalador.",
        L"Esta carpeta no contiene una instalaci\x00F3n de Brisa-Linker que se pueda quitar.",
    };
    static const Text japanese {
        L"Brisa-Linker \x306E\x30A2\x30F3\x30A4\x30F3\x30B9\x30C8\x30FC\x30EB",
        L"\x3053\x306E\x30B3\x30F3\x30D4\x30E5\x30FC\x30BF\x30FC\x304B\x3089 Brisa-Linker \x3092\x524A\x9664\x3057\x307E\x3059\x304B? "
        L"\x30D5\x30A9\x30EB\x30C0\x30FC\x306B\x8FFD\x52A0\x3057\x305F\x30D5\x30A1\x30A4\x30EB\x306F\x6B8B\x308A\x307E\x3059\x3002",
        L"Brisa-Linker \x3092\x3053\x306E\x30B3\x30F3\x30D4\x30E5\x30FC\x30BF\x30FC\x304B\x3089\x524A\x9664\x3057\x307E\x3057\x305F\x3002",
        L"Brisa-Linker \x3092\x524A\x9664\x3057\x307E\x3057\x305F\x304C\x3001\x4E00\x90E8\x306E\x30D5\x30A1\x30A4\x30EB\x3092\x524A\x9664\x3067\x304D\x307E\x305B\x3093\x3067\x3057\x305F\x3002"
        L"Brisa-Linker \x3092\x9589\x3058\x3066\x304B\x3089\x3001\x3082\x3046\x4E00\x5EA6\x30A2\x30F3\x30A4\x30F3\x30B9\x30C8\x30FC\x30EB\x3057\x3066\x304F\x3060\x3055\x3044\x3002",
        L"\x3053\x306E\x30D5\x30A9\x30EB\x30C0\x30FC\x306B\x306F\x524A\x9664\x3067\x304D\x308B Brisa-Linker \x306E\x30A4\x30F3\x30B9\x30C8\x30FC\x30EB\x304C\x3042\x308A\x307E\x305B\x3093\x3002",
    };
    switch (PRIMARYLANGID(GetUserDefaultUILanguage())) {
    case LANG_RUSSIAN:
        return russian;
    case LANG_SPANISH:
        return spanish;
    case LANG_JAPANESE:
        return japanese;
    default:
        return english;
    }
}
