import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// What is connected, as it comes and goes.
HostPage {
    id: page

    readonly property var manager: MultimediaProvider.deviceMgr

    title: qsTr("Devices")
    hint: qsTr("The lists follow what is plugged in and out")

    GridLayout {
        Layout.fillWidth: true
        Layout.fillHeight: true
        columns: 2
        columnSpacing: 14
        rowSpacing: 14

        DeviceList {
            title: qsTr("Microphones")
            icon: "qrc:/host/icons/voice.svg"
            nothing: qsTr("No microphone is connected.")
            devices: page.manager.audioInputModel
        }
        DeviceList {
            title: qsTr("Loudspeakers")
            icon: "qrc:/host/icons/devices.svg"
            nothing: qsTr("No loudspeaker is connected.")
            devices: page.manager.audioOutputModel
        }
        DeviceList {
            title: qsTr("Cameras")
            icon: "qrc:/host/icons/photo.svg"
            nothing: qsTr("No camera is connected.")
            devices: page.manager.cameraModel
        }
        DeviceList {
            title: qsTr("Screens")
            icon: "qrc:/host/icons/screen.svg"
            nothing: qsTr("No screen is connected.")
            devices: page.manager.screenModel
        }
    }
}
