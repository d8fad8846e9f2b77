import QtQuick 2.15
import QtQuick.Controls 2.15

// Chooses the microphone of voice messages.
ComboBox {
    id: box

    readonly property var devices: MultimediaProvider.deviceMgr.audioInputModel
    readonly property var config: MultimediaProvider.recordEngine.config
    readonly property string chosen: config.inputDevice === "Default" ? devices.defaultDevice : config.inputDevice

    objectName: "microphones"
    model: devices
    enabled: count > 0
    displayText: count > 0 ? name(chosen, devices.count) : qsTr("No microphone is connected")
    Accessible.name: qsTr("Microphone")
    onActivated: config.inputDevice = device(index).deviceName

    function device(row) {
        return devices.data(devices.index(row, 0), Qt.UserRole + 1)
    }

    // `count` is what makes a binding look again.
    function name(deviceName, count) {
        for (let row = 0; row < count; ++row) {
            if (device(row).deviceName === deviceName)
                return device(row).description
        }
        return qsTr("The system's microphone")
    }

    delegate: ItemDelegate {
        width: box.width
        text: deviceItem.description
        highlighted: box.highlightedIndex === index
        font.bold: deviceItem.deviceName === box.chosen
    }
}
