import QtQml 2.15
import Quillon 1.0

QtObject {
    property int screen: DeviceTypeDefine.Screen
    property size frame: VideoEditor.videoSize("")
}
