import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15
import Quillon 1.0

// The devices of one kind; the system's choice is marked.
Card {
    id: card

    property string title
    property alias icon: emptyState.icon
    property alias nothing: emptyState.text
    property var devices

    function detail(device) {
        if (devices.deviceType === DeviceTypeDefine.Screen) {
            const place = device.geometry
            return qsTr("%1 × %2 at %3, %4").arg(place.width).arg(place.height).arg(place.x).arg(place.y)
        }
        return [device.sourceName, device.manufacturer].filter(part => part && part !== device.description).join(" · ")
    }

    objectName: title
    Layout.fillWidth: true
    Layout.fillHeight: true
    Layout.preferredWidth: 1
    Layout.preferredHeight: 1

    ColumnLayout {
        anchors.fill: parent
        spacing: 6

        Label {
            text: card.devices.count > 0 ? qsTr("%1 (%2)").arg(card.title).arg(card.devices.count) : card.title
            font.bold: true
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            EmptyState {
                id: emptyState

                visible: card.devices.count === 0
            }

            ListView {
                objectName: "list"
                anchors.fill: parent
                clip: true
                spacing: 4
                boundsBehavior: Flickable.StopAtBounds
                activeFocusOnTab: count > 0
                model: card.devices
                ScrollBar.vertical: ScrollBar {}

                delegate: Rectangle {
                    width: ListView.view.width
                    height: texts.implicitHeight + 14
                    radius: 6
                    color: ListView.isCurrentItem && ListView.view.activeFocus ? Universal.baseLowColor : "transparent"

                    ColumnLayout {
                        id: texts

                        anchors.left: parent.left
                        anchors.right: mark.visible ? mark.left : parent.right
                        anchors.verticalCenter: parent.verticalCenter
                        anchors.margins: 8
                        spacing: 1

                        Label {
                            Layout.fillWidth: true
                            text: deviceItem.description || deviceItem.deviceName
                            elide: Text.ElideRight
                        }
                        Label {
                            Layout.fillWidth: true
                            visible: text !== ""
                            text: card.detail(deviceItem)
                            font.pixelSize: 12
                            color: Universal.baseMediumColor
                            elide: Text.ElideRight
                        }
                    }
                    Label {
                        id: mark

                        anchors.right: parent.right
                        anchors.rightMargin: 8
                        anchors.verticalCenter: parent.verticalCenter
                        visible: deviceItem.deviceName === card.devices.defaultDevice
                        text: qsTr("default")
                        font.pixelSize: 12
                        padding: 4
                        leftPadding: 8
                        rightPadding: 8
                        color: "white"
                        background: Rectangle {
                            radius: height / 2
                            color: Universal.accent
                        }
                    }
                }
            }
        }
    }
}
