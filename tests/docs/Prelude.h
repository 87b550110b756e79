#pragma once

// What the code in the documents takes for granted.

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "common/GuardedMessageProcessor.h"
#include "tovu/db/DB.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/Directory.h"
#include "tovu/util/DynamicLibrary.h"
#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/FileLogger.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/Format.h"
#include "tovu/util/JobQueue.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/MessageWriter.h"
#include "tovu/util/Mutex.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/Singleton.h"
#include "tovu/util/Socket.h"
#include "tovu/util/StatusParams.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamReader.h"
#include "tovu/util/StreamSelector.h"
#include "tovu/util/StreamWriter.h"
#include "tovu/util/Thread.h"
#include "tovu/util/XercesUtils.h"
#include "volumed/Loggers.h"

using namespace tovu::util;
