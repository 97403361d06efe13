#pragma once

// The whole SDK.
#include <vornex/KeyedArchive.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/ProjectList.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQConnection.h>
#include <vornex/TQCopyInterface.h>
#include <vornex/TQError.h>
#include <vornex/TQImage.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQPredicate.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>
#include <vornex/TQSearchResponse.h>
#include <vornex/TQSession.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/Types.h>
#include <vornex/Value.h>
#include <vornex/VornexSDK.h>
