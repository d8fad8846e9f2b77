import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

ApplicationWindow {
    id: window

    // Universal.System, Universal.Light or Universal.Dark.
    property int theme: Universal.System
    readonly property bool narrow: width < 820

    function show(index) {
        navigation.currentIndex = index
        pages.children[index].forceActiveFocus()
    }

    Component.onCompleted: show(0)

    title: qsTr("Multimedia example host")
    width: 1040
    height: 700
    minimumWidth: 700
    minimumHeight: 540
    visible: true

    Universal.theme: theme
    Universal.accent: "#2f6fdb"

    RowLayout {
        anchors.fill: parent
        spacing: 0

        Rectangle {
            Layout.fillHeight: true
            Layout.preferredWidth: window.narrow ? 56 : 172
            color: Universal.chromeLowColor

            ListView {
                id: navigation

                objectName: "navigation"
                anchors.fill: parent
                anchors.topMargin: 14
                anchors.bottomMargin: 56
                activeFocusOnTab: true
                interactive: false
                model: [
                    { name: qsTr("Voice"), icon: "voice" },
                    { name: qsTr("Player"), icon: "player" },
                    { name: qsTr("Screen"), icon: "screen" },
                    { name: qsTr("Photo"), icon: "photo" },
                    { name: qsTr("Video"), icon: "video" },
                    { name: qsTr("GIF"), icon: "gif" },
                    { name: qsTr("Devices"), icon: "devices" }
                ]
                delegate: ItemDelegate {
                    id: entry

                    readonly property bool chosen: ListView.isCurrentItem

                    objectName: "page" + modelData.icon
                    width: ListView.view.width
                    text: modelData.name
                    icon.source: "qrc:/host/icons/" + modelData.icon + ".svg"
                    icon.color: Universal.foreground
                    display: window.narrow ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                    highlighted: false
                    onClicked: window.show(index)
                    ToolTip.text: modelData.name
                    ToolTip.visible: window.narrow && hovered

                    Rectangle {
                        anchors.left: parent.left
                        anchors.verticalCenter: parent.verticalCenter
                        visible: entry.chosen
                        width: 4
                        height: parent.height * 0.6
                        radius: 2
                        color: Universal.accent
                    }
                    Rectangle {
                        anchors.fill: parent
                        z: -1
                        visible: entry.chosen
                        color: "#20808080"
                        border.color: Universal.accent
                        border.width: navigation.activeFocus ? 1 : 0
                    }

                    Shortcut {
                        sequence: "Ctrl+" + (index + 1)
                        onActivated: window.show(index)
                    }
                }
            }

            ToolButton {
                objectName: "theme"
                anchors.bottom: parent.bottom
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.margins: 4
                height: 44
                icon.source: "qrc:/host/icons/theme.svg"
                text: window.theme === Universal.Light ? qsTr("Light") : window.theme === Universal.Dark ? qsTr("Dark") : qsTr("As the system")
                font.pixelSize: 13
                display: window.narrow ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                Accessible.name: qsTr("Light or dark: %1").arg(text)
                ToolTip.text: text
                ToolTip.visible: window.narrow && hovered
                onClicked: window.theme = window.theme === Universal.System ? Universal.Dark
                                        : window.theme === Universal.Dark ? Universal.Light : Universal.System
            }
        }

        StackLayout {
            id: pages

            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: navigation.currentIndex

            VoicePage {}
            PlayerPage {}
            ScreenPage {}
            PhotoPage {}
            VideoPage {}
            GifPage {}
            DevicesPage {}
        }
    }
}
