#include "plugin/velmorra_std_plugins.h"

#include "plugin/factory.h"

#if defined(Q_OS_WIN)
#define VELMORRA_BUILD_SYSTEM "Windows"
#elif defined(Q_OS_MACOS)
#define VELMORRA_BUILD_SYSTEM "Macosx"
#else
#define VELMORRA_BUILD_SYSTEM "Linux"
#endif

#if defined(Q_PROCESSOR_ARM_64)
#define VELMORRA_BUILD_PROCESSOR "arm64"
#elif defined(Q_PROCESSOR_X86_64)
#define VELMORRA_BUILD_PROCESSOR "x86_64"
#else
#define VELMORRA_BUILD_PROCESSOR "unknown"
#endif

#if defined(Q_CC_CLANG)
#define VELMORRA_BUILD_COMPILER "clang"
#elif defined(Q_CC_MSVC)
#define VELMORRA_BUILD_COMPILER "msvc"
#else
#define VELMORRA_BUILD_COMPILER "gcc"
#endif

ActionItem* MyVelmorraStdPlugins::newAction(unsigned int index, unsigned int) {
    return newPrototype(index);
}

const char* qt_plugin_query_verification_data() {
    return "pattern=QT_PLUGIN_VERIFICATION_DATA\n"
           "version=4.8.7\n"
           "debug=false\n"
           "buildkey=" VELMORRA_BUILD_SYSTEM " " VELMORRA_BUILD_PROCESSOR
           " " VELMORRA_BUILD_COMPILER " release full-config";
}
